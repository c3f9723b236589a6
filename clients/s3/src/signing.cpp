// SPDX-License-Identifier: Apache-2.0
#include "signing.hpp"

#include "digests.hpp"
#include "text.hpp"

#include <algorithm>
#include <array>
#include <ctime>

namespace storage::cloudprovider::s3 {

namespace {

// A value with each run of blanks made one.
std::string collapseBlanks(std::string_view value) {
    std::string collapsed;
    for (const char byte : trim(value)) {
        if (byte != ' ' || collapsed.back() != ' ') {
            collapsed += byte;
        }
    }
    return collapsed;
}

std::string joinNames(const Fields& headers) {
    std::string names;
    for (const auto& [name, value] : headers) {
        names += (names.empty() ? "" : ";") + name;
    }
    return names;
}

std::string makeCanonicalRequest(const SignedParts& request, const Fields& headers, const std::string& names) {
    std::string text = request.Method + '\n' + request.Path + '\n' + toQueryString(request.Query) + '\n';
    for (const auto& [name, value] : headers) {
        text += name + ':' + value + '\n';
    }
    return text + '\n' + names + '\n' + request.PayloadHash;
}

}  // namespace

std::string toAmzDate(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm fields{};
    ::gmtime_r(&seconds, &fields);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &fields)};
}

std::string toQueryString(const Fields& query) {
    Fields encoded;
    for (const auto& [name, value] : query) {
        encoded.emplace_back(percentEncode(name, Slash::Encode), percentEncode(value, Slash::Encode));
    }
    std::sort(encoded.begin(), encoded.end());
    std::string text;
    for (const auto& [name, value] : encoded) {
        text.append(text.empty() ? "" : "&").append(name).append("=").append(value);
    }
    return text;
}

std::string makeAuthorization(const SignedParts& request, const S3Credentials& credentials, std::string_view amzDate,
                              std::string_view region) {
    Fields headers;
    for (const auto& [name, value] : request.Headers) {
        headers.emplace_back(toLower(name), collapseBlanks(value));
    }
    std::sort(headers.begin(), headers.end());
    const auto names = joinNames(headers);
    const auto date = std::string(amzDate.substr(0, 8));
    const auto scope = date + '/' + std::string(region) + "/s3/aws4_request";
    const auto text = "AWS4-HMAC-SHA256\n" + std::string(amzDate) + '\n' + scope + '\n' +
                      toHex(sha256(makeCanonicalRequest(request, headers, names)));
    const auto dateKey = hmacSha256("AWS4" + credentials.SecretKey, date);
    const auto key = hmacSha256(hmacSha256(hmacSha256(dateKey, region), "s3"), "aws4_request");
    return "AWS4-HMAC-SHA256 Credential=" + credentials.AccessKey + '/' + scope + ",SignedHeaders=" + names +
           ",Signature=" + toHex(hmacSha256(key, text));
}

}  // namespace storage::cloudprovider::s3
