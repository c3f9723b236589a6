// SPDX-License-Identifier: Apache-2.0
#include "StoreUrl.hpp"

#include "failures.hpp"

#include <string_view>

namespace cloudfs {

namespace {

constexpr std::string_view kSqlite = "sqlite:";
constexpr std::string_view kS3 = "s3://";
constexpr std::string_view kUri = "file:";

bool beginsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

}  // namespace

StoreUrl StoreUrl::parse(const std::string& text) {
    if (beginsWith(text, kS3)) {
        throw UsageError("this cloudfs is built without S3: " + text);
    }
    if (!beginsWith(text, kSqlite) || text.size() == kSqlite.size()) {
        throw UsageError("a store is sqlite:FILE or s3://BUCKET[/PREFIX], not: " + text);
    }
    auto file = text.substr(kSqlite.size());
    // SQLite has meanings of its own for names that begin so.
    if (file.front() == ':' || beginsWith(file, kUri)) {
        file.insert(0, "./");
    }
    return {std::move(file)};
}

}  // namespace cloudfs
