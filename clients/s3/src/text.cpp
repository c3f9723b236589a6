// SPDX-License-Identifier: Apache-2.0
#include "text.hpp"

#include <foundation/services/Text.hpp>

#include <boost/date_time/posix_time/conversion.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/date_time/posix_time/time_parsers.hpp>

#include <curl/curl.h>

#include <charconv>

namespace storage::cloudprovider::s3 {

namespace {

bool isUnreserved(char byte) {
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') ||
           byte == '-' || byte == '.' || byte == '_' || byte == '~';
}

std::optional<unsigned char> toByte(std::string_view digits) {
    unsigned char value = 0;
    const auto* const end = digits.data() + digits.size();
    const auto parsed = std::from_chars(digits.data(), end, value, 16);
    return digits.size() == 2 && parsed.ptr == end && parsed.ec == std::errc() ? std::optional(value) : std::nullopt;
}

}  // namespace

std::string toLower(std::string_view text) {
    std::string lower(text);
    for (char& byte : lower) {
        byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
    }
    return lower;
}

std::string_view trim(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

bool isUtf8(std::string_view text) {
    try {
        foundation::toUtf16(text);
        return true;
    } catch (const foundation::InvalidTextError&) {
        return false;
    }
}

std::optional<std::uint64_t> toNumber(std::string_view text) {
    std::uint64_t value = 0;
    const auto* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    return !text.empty() && parsed.ptr == end && parsed.ec == std::errc() ? std::optional(value) : std::nullopt;
}

std::string toVersion(std::string_view etag) {
    etag = trim(etag);
    if (etag.starts_with("W/")) {
        return {};
    }
    if (etag.size() >= 2 && etag.front() == '"' && etag.back() == '"') {
        etag = etag.substr(1, etag.size() - 2);
    }
    return std::string(etag);
}

std::string percentEncode(std::string_view text, Slash slash) {
    static constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (const char byte : text) {
        if (isUnreserved(byte) || (byte == '/' && slash == Slash::Keep)) {
            encoded += byte;
        } else {
            const auto value = static_cast<unsigned char>(byte);
            encoded += '%';
            encoded += kDigits[value >> 4U];
            encoded += kDigits[value & 0xFU];
        }
    }
    return encoded;
}

std::string percentDecode(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte = text[at] == '%' ? toByte(text.substr(at + 1, 2)) : std::nullopt;
        if (byte) {
            decoded += static_cast<char>(*byte);
            at += 2;
        } else {
            decoded += text[at] == '+' ? ' ' : text[at];
        }
    }
    return decoded;
}

boost::posix_time::ptime toTime(const std::string& text) {
    if (text.size() > 10 && text[10] == 'T') {
        try {
            return boost::posix_time::from_iso_extended_string(text.substr(0, text.find('Z')));
        } catch (const std::exception&) {
            return {};
        }
    }
    const auto seconds = ::curl_getdate(text.c_str(), nullptr);
    return seconds == -1 ? boost::posix_time::ptime() : boost::posix_time::from_time_t(seconds);
}

}  // namespace storage::cloudprovider::s3
