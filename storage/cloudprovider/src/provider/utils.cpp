// SPDX-License-Identifier: Apache-2.0
#include "support/host.hpp"

#include <foundation/services/Text.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <cmath>
#include <utility>

namespace storage::cloudprovider::utils {

using boost::posix_time::ptime;

namespace {

constexpr char16_t kSeparator = u'/';
constexpr char16_t kDot = u'.';

const ptime& epoch() {
    static const ptime instance(boost::gregorian::date(1970, 1, 1));
    return instance;
}

// Milliseconds from the epoch to the first and last times that a ptime holds.
std::int64_t earliest() {
    static const std::int64_t instance = (ptime(boost::posix_time::min_date_time) - epoch()).total_milliseconds();
    return instance;
}

std::int64_t latest() {
    static const std::int64_t instance = (ptime(boost::posix_time::max_date_time) - epoch()).total_milliseconds();
    return instance;
}

}  // namespace

char separator() noexcept {
    return '/';
}

char dot() noexcept {
    return '.';
}

std::u16string addLeadingSlash(const std::u16string& text) {
    return !text.empty() && text.front() == kSeparator ? text : kSeparator + text;
}

std::u16string removeLeadingSlash(const std::u16string& text) {
    return !text.empty() && text.front() == kSeparator ? text.substr(1) : text;
}

std::u16string removeTrailingSlash(std::u16string text) {
    if (!text.empty() && text.back() == kSeparator) {
        text.pop_back();
    }
    return text;
}

bool hasTrailingSlash(const std::string& key) {
    return !key.empty() && key.back() == separator();
}

std::string ensureTrailingSlash(std::string key) {
    if (!key.empty() && !hasTrailingSlash(key)) {
        key.push_back(separator());
    }
    return key;
}

std::u16string canonicalize(const std::u16string& path) {
    // A character followed by "/" is dropped in both passes, dots in the first one and slashes in the second.
    const auto dropBeforeSlash = [](const std::u16string& text, char16_t dropped) {
        std::u16string kept;
        kept.reserve(text.size());
        for (std::size_t at = 0; at < text.size(); ++at) {
            const bool isBeforeSlash = at + 1 < text.size() && text[at + 1] == kSeparator;
            if (text[at] != dropped || !isBeforeSlash) {
                kept.push_back(text[at]);
            }
        }
        return kept;
    };
    std::u16string result = dropBeforeSlash(path, kDot);
    if (!result.empty() && result.back() == kDot) {
        result.pop_back();
    }
    return dropBeforeSlash(result, kSeparator);
}

std::string iriToKey(const host::StorageIRI& iri) {
    if (!iri.hasPath()) {
        return {};
    }
    try {
        return foundation::toUtf8(removeLeadingSlash(canonicalize(iri.getPath())));
    } catch (const foundation::InvalidTextError&) {
        throw InvalidLocationException(host::ExceptionContext("the path is not valid UTF-16"));
    }
}

std::u16string keyToPath(const std::string& key) {
    const std::u16string text = foundation::toUtf16(key);
    std::u16string path(1, kSeparator);
    path.reserve(text.size() + 1);
    for (std::size_t at = 0; at < text.size(); ++at) {
        path.push_back(text[at]);
        const bool isBeforeSlash = at + 1 == text.size() || text[at + 1] == kSeparator;
        if (text[at] == kDot && isBeforeSlash) {
            path.push_back(kDot);
        }
    }
    return path;
}

ptime double2Ptime(double milliseconds) {
    const double seconds = std::trunc(milliseconds / 1000);
    // Also true for NaN, which compares false with everything.
    const auto first = static_cast<double>(earliest());
    const auto last = static_cast<double>(latest());
    if (!(seconds * 1000 >= first && seconds * 1000 <= last)) {
        return {boost::posix_time::not_a_date_time};
    }
    return epoch() + boost::posix_time::seconds(static_cast<std::int64_t>(seconds));
}

ptime long2Ptime(std::int64_t milliseconds) {
    if (milliseconds < earliest() || milliseconds > latest()) {
        return {boost::posix_time::not_a_date_time};
    }
    return epoch() + boost::posix_time::microseconds(milliseconds * 1000);
}

}  // namespace storage::cloudprovider::utils
