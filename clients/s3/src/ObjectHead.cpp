// SPDX-License-Identifier: Apache-2.0
#include "ObjectHead.hpp"

#include "signing.hpp"
#include "text.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace storage::cloudprovider::s3 {

namespace {

constexpr const char* kWritesHeader = "x-amz-meta-cloudprovider-writes";
// In bytes, of all ids. Swift takes no longer value (OpenStack Swift, max_meta_value_length); of the 2 KB of metadata
// that an object may have it is little (AWS S3 user guide, object metadata).
constexpr std::size_t kLongestWriteIds = 256;

constexpr std::array<std::string_view, 11> kKeptHeaders{"content-type",
                                                        "content-encoding",
                                                        "content-language",
                                                        "content-disposition",
                                                        "cache-control",
                                                        "expires",
                                                        "x-amz-storage-class",
                                                        "x-amz-server-side-encryption",
                                                        "x-amz-server-side-encryption-aws-kms-key-id",
                                                        "x-amz-server-side-encryption-bucket-key-enabled",
                                                        "x-amz-website-redirect-location"};

struct Unkeepable {
    const char* header;
    const char* what;
};
constexpr std::array<Unkeepable, 4> kUnkeepable{{
    {"x-amz-server-side-encryption-customer-algorithm", "encryption with a key of its owner's"},
    {"x-amz-object-lock-mode", "retention"},
    {"x-amz-object-lock-legal-hold", "legal hold"},
    {"x-amz-missing-meta", "metadata that the store does not tell"},
}};

bool isKept(std::string_view name) {
    return (name.starts_with("x-amz-meta-") && name != kWritesHeader) ||
           std::find(kKeptHeaders.begin(), kKeptHeaders.end(), name) != kKeptHeaders.end();
}

std::vector<std::string> splitIds(std::string_view text) {
    std::vector<std::string> ids;
    while (!text.empty()) {
        const auto comma = std::min(text.find(','), text.size());
        ids.emplace_back(trim(text.substr(0, comma)));
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    return ids;
}

std::string joinIds(const std::vector<std::string>& ids) {
    std::string text;
    for (const auto& id : ids) {
        text += (text.empty() ? "" : ",") + id;
    }
    return text;
}

// Of the whole object: "bytes 5-9/100" tells it where the answer has only a range.
std::string_view lengthOf(const HttpResponse& response) {
    const std::string_view range = response.header("content-range");
    const auto slash = range.rfind('/');
    return response.Status == 206 && slash != range.npos ? range.substr(slash + 1) : response.header("content-length");
}

}  // namespace

bool ObjectAttributes::hasWrite(const std::string& id) const {
    return std::find(WriteIds.begin(), WriteIds.end(), id) != WriteIds.end();
}

ObjectHead readHead(const HttpResponse& response) {
    ObjectHead head;
    head.Version = toVersion(response.header("etag"));
    head.Size = toNumber(lengthOf(response)).value_or(0);
    head.LastModified = toTime(response.header("last-modified"));
    auto& attributes = head.Attributes;
    attributes.WriteIds = splitIds(response.header(kWritesHeader));
    attributes.TagCount = toNumber(response.header("x-amz-tagging-count")).value_or(0);
    for (const auto& [name, value] : response.Headers) {
        if (isKept(name)) {
            attributes.Kept.emplace_back(name, value);
        }
    }
    for (const auto& [header, what] : kUnkeepable) {
        const auto& value = response.header(header);
        if (!value.empty() && value != "OFF" && value != "0") {
            attributes.Unkeepable = what;
        }
    }
    return head;
}

ObjectAttributes newAttributes(const S3Options& options) {
    ObjectAttributes attributes;
    const std::pair<const char*, const std::string*> settings[] = {
        {"x-amz-storage-class", &options.StorageClass},
        {"x-amz-server-side-encryption", &options.Encryption},
        {"x-amz-server-side-encryption-aws-kms-key-id", &options.EncryptionKeyId}};
    for (const auto& [name, value] : settings) {
        if (!value->empty()) {
            attributes.Kept.emplace_back(name, *value);
        }
    }
    return attributes;
}

Fields makeStoringHeaders(const ObjectAttributes& attributes, const Tags& tags, const std::string& writeId) {
    auto headers = attributes.Kept;
    if (!tags.empty()) {
        headers.emplace_back("x-amz-tagging", toQueryString(tags));
    }
    headers.emplace_back(kWritesHeader, joinIds(attributesAfter(attributes, writeId).WriteIds));
    return headers;
}

ObjectAttributes attributesAfter(ObjectAttributes attributes, const std::string& writeId) {
    auto& ids = attributes.WriteIds;
    ids.insert(ids.begin(), writeId);
    while (joinIds(ids).size() > kLongestWriteIds) {
        ids.pop_back();
    }
    return attributes;
}

}  // namespace storage::cloudprovider::s3
