// SPDX-License-Identifier: Apache-2.0
#include "objects.hpp"

#include "digests.hpp"
#include "text.hpp"

#include <algorithm>
#include <istream>
#include <utility>

namespace storage::cloudprovider::s3 {

std::string putObject(Bucket& bucket, const std::string& key, std::istream& data, std::uint64_t size,
                      const ExpectedObject& expected) {
    const auto attributes = bucket.attributesOf(key, expected.getVersion());
    const auto writeId = makeRandomId();
    const auto headers = makeStoringHeaders(attributes, bucket.tagsOf(key, attributes), writeId);
    const auto start = data.tellg();
    const auto send = [&](const Fields& conditions) {
        data.clear();
        data.seekg(start);
        auto request = bucket.request("PUT", key);
        request.Headers = headers;
        request.Headers.insert(request.Headers.end(), conditions.begin(), conditions.end());
        request.Data = &data;
        request.Size = size;
        return toVersion(bucket.wire().send(std::move(request)).Http.header("etag"));
    };
    auto version = bucket.replace({key, writeId, expected, Conditions::Write::Put, false, send});
    bucket.memory().see(key, {version, attributesAfter(attributes, writeId), true});
    return version;
}

void copyWhole(Bucket& bucket, const std::string& from, const ObjectHead& source, const std::string& to,
               const ExpectedObject& expected) {
    const auto writeId = makeRandomId();
    const auto headers = makeStoringHeaders(source.Attributes, {}, writeId);  // tags go with the bytes
    const auto send = [&](const Fields& conditions) {
        const auto what = conditions.empty() ? Bucket::Copied::Object : Bucket::Copied::ConditionalObject;
        return bucket.copyFrom(from, source.Version, what, [&](const Fields& sourceConditions) {
            auto request = bucket.request("PUT", to);
            request.Headers = headers;
            request.Headers.emplace_back("x-amz-metadata-directive", "REPLACE");
            request.Headers.emplace_back("x-amz-copy-source", bucket.copySource(from));
            for (const auto* const more : {&conditions, &sourceConditions}) {
                request.Headers.insert(request.Headers.end(), more->begin(), more->end());
            }
            request.Expected = S3Request::Answer::Xml;
            request.IsSlow = true;
            return toVersion(readElement(bucket.wire().send(std::move(request)).Http.Body, "ETag"));
        });
    };
    const bool looksFirst = !bucket.honoursAllConditions();
    auto version = bucket.replace({to, writeId, expected, Conditions::Write::Copy, looksFirst, send});
    bucket.memory().see(to, {std::move(version), attributesAfter(source.Attributes, writeId), true});
}

void deleteObject(Bucket& bucket, const std::string& key) {
    bucket.memory().forget(key);
    try {
        bucket.wire().send(bucket.request("DELETE", key));
    } catch (const S3Failure& failure) {
        if (!failure.isAbsence()) {
            throw;
        }
    }
}

void deleteObjects(Bucket& bucket, const std::vector<std::string>& keys) {
    std::vector<UndeletedKey> left;
    std::vector<std::string> together;
    for (const auto& key : keys) {
        bucket.memory().forget(key);
        if (isXmlText(bucket.fullKey(key))) {
            together.push_back(bucket.fullKey(key));
            continue;
        }
        try {
            deleteObject(bucket, key);
        } catch (const S3Failure& failure) {
            left.emplace_back(bucket.fullKey(key), *failure.operator->());
        }
    }
    if (!together.empty()) {
        auto request = bucket.request("POST", {});
        request.Query = {{"delete", ""}};
        request.Headers = {{"Content-Type", "application/xml"}};
        request.Body = writeDeletion(together);
        request.NeedsDigest = true;
        request.Expected = S3Request::Answer::Xml;
        const auto undeleted = readUndeleted(bucket.wire().send(std::move(request)).Http.Body);
        std::copy_if(undeleted.begin(), undeleted.end(), std::back_inserter(left),
                     [](const UndeletedKey& key) { return key.second.Code != "NoSuchKey"; });
    }
    if (!left.empty()) {
        auto failure = left.front().second;
        failure.Status = failure.Code == "AccessDenied" ? 403 : failure.Status;
        failure.Message.clear();
        for (const auto& [key, details] : left) {
            failure.Message += (failure.Message.empty() ? "\"" : ", \"") + bucket.ownKey(key) + "\": " + details.Code +
                               (details.Message.empty() ? "" : " " + details.Message);
        }
        throw S3Failure(std::move(failure));
    }
}

}  // namespace storage::cloudprovider::s3
