// SPDX-License-Identifier: Apache-2.0
#include "settings.hpp"

#include "limits.hpp"
#include "profileFiles.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <cstdlib>
#include <fstream>
#include <utility>

namespace storage::cloudprovider::s3 {

using foundation::storage::provider::ExceptionContext;

namespace {

[[noreturn]] void refuseLocation(const std::string& text) {
    throw InvalidLocationException(ExceptionContext("S3: " + text));
}

[[noreturn]] void refuseCredentials(const std::string& text) {
    throw InvalidCredentialsException(ExceptionContext("S3: " + text));
}

// An empty variable counts as none, as for AWS's tools.
std::string firstOf(const Lookup& environment, std::initializer_list<const char*> names) {
    for (const auto* const name : names) {
        if (auto value = environment(name); value && !value->empty()) {
            return *std::move(value);
        }
    }
    return {};
}

const std::string* find(const Profile& profile, const char* name) {
    const auto found = profile.find(name);
    return found == profile.end() || found->second.empty() ? nullptr : &found->second;
}

/// The two files of profiles, read as one.
class ProfileFiles {
public:
    ProfileFiles(const Lookup& environment, const std::string& wanted) : m_environment(environment) {
        m_name = wanted.empty() ? firstOf(environment, {"AWS_PROFILE"}) : wanted;
        const bool isNamed = !m_name.empty();
        m_name = isNamed ? m_name : "default";
        bool isFound = read("AWS_CONFIG_FILE", "/.aws/config");
        isFound = read("AWS_SHARED_CREDENTIALS_FILE", "/.aws/credentials") || isFound;
        if (isNamed && !isFound) {
            refuseCredentials("no file has the profile \"" + m_name + '"');
        }
    }

    std::string get(const char* setting) const {
        const auto* const value = find(m_settings, setting);
        return value == nullptr ? std::string() : *value;
    }

    S3Credentials credentials() const {
        for (const auto* const setting : {"sso_session", "sso_start_url", "sso_account_id", "role_arn",
                                          "web_identity_token_file", "credential_process"}) {
            if (find(m_settings, setting) != nullptr) {
                refuseCredentials("the profile \"" + m_name + "\" has " + setting +
                                  ", which is not followed: get credentials from it and hand them over");
            }
        }
        S3Credentials found{get("aws_access_key_id"), get("aws_secret_access_key"), get("aws_session_token"), {}};
        if (found.AccessKey.empty() && found.SecretKey.empty()) {
            refuseCredentials("no credentials: neither AWS_ACCESS_KEY_ID nor aws_access_key_id of the profile \"" +
                              m_name + "\" is set");
        }
        if (found.AccessKey.empty() || found.SecretKey.empty()) {
            refuseCredentials("the profile \"" + m_name + "\" has only one of aws_access_key_id and " +
                              "aws_secret_access_key");
        }
        return found;
    }

private:
    bool read(const char* variable, const char* usualPlace) {
        auto path = firstOf(m_environment, {variable});
        if (path.empty()) {
            path = firstOf(m_environment, {"HOME"}) + usualPlace;
        }
        std::ifstream file(path);
        auto profile = readProfile(file, m_name);
        if (profile) {
            for (auto& [name, value] : *profile) {
                m_settings.insert_or_assign(name, std::move(value));
            }
        }
        return profile.has_value();
    }

    const Lookup& m_environment;
    std::string m_name;
    Profile m_settings;
};

std::optional<S3Credentials> environmentCredentials(const Lookup& environment) {
    S3Credentials found{firstOf(environment, {"AWS_ACCESS_KEY_ID"}),
                        firstOf(environment, {"AWS_SECRET_ACCESS_KEY"}),
                        firstOf(environment, {"AWS_SESSION_TOKEN"}),
                        {}};
    if (found.AccessKey.empty() != found.SecretKey.empty()) {
        refuseCredentials(std::string(found.AccessKey.empty() ? "AWS_ACCESS_KEY_ID" : "AWS_SECRET_ACCESS_KEY") +
                          " is not set, though its companion is");
    }
    return found.AccessKey.empty() ? std::nullopt : std::optional(std::move(found));
}

void checkGiven(const S3Options& options) {
    if (options.Bucket.empty()) {
        refuseLocation("Bucket is not set");
    }
    if (options.Bucket.find_first_of("/?#%\\ \t\r\n") != std::string::npos) {
        refuseLocation("Bucket is no bucket's name");
    }
    if (options.Credentials && (options.Credentials->AccessKey.empty() || options.Credentials->SecretKey.empty())) {
        refuseCredentials("Credentials lack a key");
    }
    if (options.PartSize < kSmallestPart) {
        refuseLocation("PartSize is below 5 MiB");
    }
}

}  // namespace

S3Options completeOptions(S3Options options, const Lookup& environment) {
    checkGiven(options);
    if (!options.Credentials && !options.CredentialSource && !options.Anonymous && options.Profile.empty()) {
        options.Credentials = environmentCredentials(environment);
    }
    options.Region =
        options.Region.empty() ? firstOf(environment, {"AWS_REGION", "AWS_DEFAULT_REGION"}) : options.Region;
    options.Endpoint =
        options.Endpoint.empty() ? firstOf(environment, {"AWS_ENDPOINT_URL_S3", "AWS_ENDPOINT_URL"}) : options.Endpoint;
    const bool isKnown = options.Credentials || options.CredentialSource || options.Anonymous;
    if (!isKnown || options.Region.empty() || options.Endpoint.empty()) {
        const ProfileFiles profile(environment, options.Profile);
        if (!isKnown) {
            options.Credentials = profile.credentials();
        }
        options.Region = options.Region.empty() ? profile.get("region") : options.Region;
        options.Endpoint = options.Endpoint.empty() ? profile.get("endpoint_url") : options.Endpoint;
    }
    options.Region = options.Region.empty() ? "us-east-1" : options.Region;
    return options;
}

Lookup processEnvironment() {
    return [](const std::string& name) -> std::optional<std::string> {
        const char* const value = std::getenv(name.c_str());
        return value == nullptr ? std::nullopt : std::optional<std::string>(value);
    };
}

}  // namespace storage::cloudprovider::s3
