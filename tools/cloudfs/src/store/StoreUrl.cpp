// SPDX-License-Identifier: Apache-2.0
#include "store/StoreUrl.hpp"

#include "terminal/failures.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

namespace cloudfs {

namespace {

constexpr std::string_view kSqlite = "sqlite:";
constexpr std::string_view kS3 = "s3://";

bool beginsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

StoreUrl parseBucket(const std::string& text) {
#ifdef CLOUDFS_WITH_S3
    const auto place = text.substr(kS3.size());
    const auto slash = std::min(place.find('/'), place.size());
    StoreUrl url{{}, place.substr(0, slash), place.substr(std::min(slash + 1, place.size()))};
    if (url.bucket.empty()) {
        throw UsageError("which bucket? A store is s3://BUCKET[/PREFIX], not: " + text);
    }
    if (!url.prefix.empty() && url.prefix.back() != '/') {
        url.prefix.push_back('/');
    }
    return url;
#else
    throw UsageError("this cloudfs is built without S3: " + text);
#endif
}

}  // namespace

StoreUrl StoreUrl::parse(const std::string& text) {
    if (beginsWith(text, kS3)) {
        return parseBucket(text);
    }
    if (!beginsWith(text, kSqlite) || text.size() == kSqlite.size()) {
        throw UsageError(std::string("a store is ") + forms() + ", not: " + text);
    }
    return {text.substr(kSqlite.size()), {}, {}};
}

const char* StoreUrl::forms() {
#ifdef CLOUDFS_WITH_S3
    return "sqlite:FILE or s3://BUCKET[/PREFIX]";
#else
    return "sqlite:FILE";
#endif
}

std::string StoreUrl::name() const {
    return isBucket() ? std::string(kS3) + bucket + '/' + prefix : file;
}

}  // namespace cloudfs
