// SPDX-License-Identifier: Apache-2.0
#include "S3Address.hpp"

#include "text.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>

namespace storage::cloudprovider::s3 {

using foundation::storage::provider::ExceptionContext;

namespace {

constexpr std::string_view kAwsDomain = "amazonaws.com";

[[noreturn]] void refuse(const char* reason) {
    throw InvalidLocationException(ExceptionContext(std::string("S3: Endpoint ") + reason));
}

// A host, or one below it.
bool isWithin(std::string_view host, std::string_view domain) {
    return host == domain || (host.ends_with(domain) && host[host.size() - domain.size() - 1] == '.');
}

bool isAddress(std::string_view host) {
    return host.starts_with('[') || host.find_first_not_of("0123456789.") == std::string_view::npos;
}

// Where the port's colon is; npos: there is none.
std::size_t findPort(std::string_view host) {
    const auto colon = host.rfind(':');
    const auto bracket = host.rfind(']');
    return colon != host.npos && (bracket == host.npos || bracket < colon) ? colon : host.npos;
}

}  // namespace

std::string_view Origin::name() const {
    return std::string_view(Host).substr(0, findPort(Host));
}

Origin parseOrigin(std::string_view url) {
    const auto scheme = url.find("://");
    if (scheme == url.npos) {
        refuse("does not begin with https:// or http://");
    }
    Origin origin;
    const auto kind = toLower(url.substr(0, scheme));
    origin.IsTls = kind == "https";
    if (!origin.IsTls && kind != "http") {
        refuse("is neither https:// nor http://");
    }
    if (url.find_first_of("@?#\\") != url.npos || url.find_first_of(" \t\r\n") != url.npos) {
        refuse("is more than a server and a path");
    }
    const auto rest = url.substr(scheme + 3);
    origin.Host = toLower(rest.substr(0, rest.find('/')));
    const auto path = rest.substr(std::min(rest.size(), origin.Host.size()));
    origin.Path = path.substr(0, path.find_last_not_of('/') + 1);
    const auto colon = findPort(origin.Host);
    if (colon != std::string::npos) {
        const auto port = toNumber(std::string_view(origin.Host).substr(colon + 1));
        if (!port || *port == 0 || *port > 65'535) {
            refuse("has no valid port");
        }
        if (*port == (origin.IsTls ? 443 : 80)) {
            origin.Host.resize(colon);
        }
    }
    const auto name = origin.name();
    const bool hasColon = name.find(':') != name.npos;
    if (name.empty() || (name.front() == '[') != (name.back() == ']') || hasColon != (name.front() == '[')) {
        refuse("has no valid host");
    }
    return origin;
}

S3Address::S3Address(const S3Options& options) : m_isAwsOwn(options.Endpoint.empty()) {
    m_origin = parseOrigin(m_isAwsOwn ? "https://s3." + options.Region + ".amazonaws.com" +
                                            (options.Region.starts_with("cn-") ? ".cn" : "")
                                      : options.Endpoint);
    m_endpointName = m_origin.name();
    const bool isWanted =
        options.Addressing == S3Addressing::VirtualHost || (options.Addressing == S3Addressing::Automatic && isAws());
    const bool isDotted = options.Bucket.find('.') != std::string::npos;
    if (isWanted && !isAddress(m_endpointName) && !(isDotted && m_origin.IsTls)) {
        m_origin.Host = toLower(options.Bucket) + '.' + m_origin.Host;
    } else {
        m_origin.Path += '/' + percentEncode(options.Bucket, Slash::Encode);
    }
}

bool S3Address::isAws() const {
    return isWithin(m_endpointName, kAwsDomain) || isWithin(m_endpointName, "amazonaws.com.cn");
}

bool S3Address::maySendOnTo(const Origin& other) const {
    // AWS's regions are each other's: s3.eu-west-1.amazonaws.com is not below s3.amazonaws.com.
    const bool isNear = isWithin(other.name(), m_endpointName) || (isAws() && isWithin(other.name(), kAwsDomain));
    return isNear && (other.IsTls || !m_origin.IsTls);
}

}  // namespace storage::cloudprovider::s3
