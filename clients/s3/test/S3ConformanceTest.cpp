// SPDX-License-Identifier: Apache-2.0
// The conformance suite on a real server: S3_ENDPOINT, S3_ACCESS_KEY, S3_SECRET_KEY, S3_REGION and S3_BUCKET name it;
// S3_LACKS names what it does not do, of: copy-conditions, tags. Each test works below a prefix of its
// own, and leaves there what it stored.
#include "Bucket.hpp"
#include "serverOptions.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/s3/S3Client.hpp>
#include <storage/cloudprovider/testing/ClientConformance.hpp>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace storage::cloudprovider::test {

namespace {

std::shared_ptr<CloudClient> makeClient() {
    return std::make_shared<S3Client>(serverOptions("conformance"));
}

bool lacks(const std::string& what) {
    const char* const lacking = std::getenv("S3_LACKS");
    return lacking != nullptr && std::string(lacking).find(what) != std::string::npos;
}

const ClientUnderTest kS3Client{.name = "S3Client",
                                .make = makeClient,
                                .minPartSize = 5 * 1024 * 1024,
                                .takesAnyBytesInKeys = false,
                                .missesDeleted = false,
                                .refusesReplacedParts = !lacks("copy-conditions"),
                                .tellsVersions = true,
                                .namesContents = true,
                                .describesUploadedParts = false,
                                .refusesCopiesLate = lacks("copy-conditions"),
                                .repeatsCompletions = true,
                                .copiesInStore = true};

std::string putOver(S3Client& client, const std::string& key, const std::string& bytes,
                    const ExpectedObject& expected = ExpectedObject::anything()) {
    std::istringstream data(bytes);
    return client.putObjectOver(key, data, bytes.size(), expected);
}

std::string get(S3Client& client, const std::string& key) {
    std::ostringstream sink;
    client.getObject(key, sink, 0, 0);
    return sink.str();
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(S3, ClientConformance, ::testing::Values(kS3Client), clientName);

TEST(S3ServerTest, AnEditByCopiesKeepsWhatAnotherClientStored) {
    const auto options = serverOptions("conformance");
    s3::Bucket other(options);
    auto request = other.request("PUT", "k");
    request.Headers = {{"Content-Type", "text/html"},
                       {"Content-Encoding", "gzip"},
                       {"Content-Language", "de"},
                       {"Content-Disposition", "inline"},
                       {"Cache-Control", "no-cache"},
                       {"Expires", "Thu, 01 Dec 2044 16:00:00 GMT"},
                       {"x-amz-meta-who", "some  body \xC3\xBC"}};
    if (!lacks("tags")) {
        request.Headers.emplace_back("x-amz-tagging", "a=1&b%20c=2");
    }
    std::string old;
    old.resize(11'000'000, 'x');
    request.Body = old;
    other.wire().send(request);
    const auto before = other.head("k").value();
    const auto tagsBefore = other.tagsOf("k", before.Attributes);

    S3Client client(options);
    const auto described = client.describeObject("k").value();
    const auto id = client.startMultipartUpload("k", described.Parts.at(0).Tag);
    std::istringstream data(std::string(described.Parts[0].Size, 'y'));
    std::vector<PartInfo> parts{described.Parts[0]};
    parts[0].Tag = client.uploadPart("k", id, parts[0], data);
    for (const auto& record :
         client.copyRun("k", id, {described.Parts.begin() + 1, described.Parts.end()}, described.Version)) {
        parts.push_back(record);
    }
    client.completeUploadOver("k", id, parts, ExpectedObject::version(described.Version));

    const auto after = other.head("k").value();
    EXPECT_EQ(after.Attributes.Kept, before.Attributes.Kept);
    EXPECT_GE(after.Attributes.Kept.size(), 5U);
    EXPECT_EQ(after.Attributes.TagCount, before.Attributes.TagCount);
    EXPECT_EQ(other.tagsOf("k", after.Attributes), tagsBefore);
    EXPECT_EQ(after.Size, old.size());
}

TEST(S3ServerTest, AnObjectIsEditedOverAndOver) {
    S3Client client(serverOptions("conformance"));
    auto version = putOver(client, "often", "0");
    for (int i = 1; i <= 20; ++i) {
        version = putOver(client, "often", std::to_string(i), ExpectedObject::version(version));
    }
    EXPECT_EQ(get(client, "often"), "20");
}

TEST(S3ServerTest, WrongSettingsAreTold) {
    const auto options = serverOptions("conformance");
    auto wrong = options;
    wrong.Credentials->SecretKey = "wrong";
    EXPECT_THROW(S3Client(wrong).getObjectInfo("k"), InvalidCredentialsException);
    wrong = options;
    wrong.Credentials->AccessKey = "wrong";
    EXPECT_THROW(S3Client(wrong).getObjectInfo("k"), InvalidCredentialsException);
    wrong = options;
    wrong.Bucket = "there-is-no-such-bucket";
    EXPECT_THROW(S3Client(wrong).getObjectInfo("k"), InvalidLocationException);
    std::string token;
    EXPECT_THROW(S3Client(wrong).listObjects("", token, {}), InvalidLocationException);
    wrong = options;
    wrong.Endpoint = "http://127.0.0.1:1";
    EXPECT_THROW(S3Client(wrong).getObjectInfo("k"), UnknownErrorException);
}

TEST(S3ServerTest, OddKeysAreStoredListedAndRemovedTogether) {
    S3Client client(serverOptions("conformance"));
    const auto longest = client.limits().LongestKey;
    std::vector<std::string> keys{"a b", "a+b", "x//y", "%20", "n\nl", "\xF0\x9F\x98\x80", std::string(longest, 'k')};
    std::sort(keys.begin(), keys.end());
    for (const auto& key : keys) {
        putOver(client, key, key);
        EXPECT_EQ(get(client, key), key);
    }
    std::string token;
    std::vector<std::string> listed;
    for (const auto& entry : client.listObjects("", token, {})) {
        listed.push_back(entry.Key);
    }
    EXPECT_EQ(listed, keys);
    keys.emplace_back("was never there");
    client.deleteObjects(keys);
    EXPECT_TRUE(client.listObjects("", token, {}).empty());
}

TEST(S3ServerTest, UnfinishedUploadsAreListedAndEnded) {
    S3Client client(serverOptions("conformance"));
    for (const auto* const key : {"b c", "a"}) {
        const auto id = client.startMultipartUpload(key, {});
        std::istringstream data("bytes");
        client.uploadPart(key, id, {0, 0, 5, {}}, data);
    }
    std::string token;
    const auto uploads = client.listUploads("", token);
    ASSERT_EQ(uploads.size(), 2U);
    EXPECT_EQ(uploads[0].Key + uploads[1].Key, "ab c");
    for (const auto& upload : uploads) {
        EXPECT_EQ(upload.Size, 5U);
        EXPECT_FALSE(upload.Started.is_special());
        client.abortMultipartUpload(upload.Key, upload.UploadId);
        client.abortMultipartUpload(upload.Key, upload.UploadId);
    }
    EXPECT_TRUE(client.listUploads("", token).empty());
}

TEST(S3ServerTest, WhatManyAppendIsThereOnce) {
    if (lacks("put-conditions")) {
        GTEST_SKIP();
    }
    const auto options = serverOptions("conformance");
    putOver(*std::make_unique<S3Client>(options), "k", "");
    std::vector<std::thread> threads;
    for (char name = 'a'; name < 'i'; ++name) {
        threads.emplace_back([&options, name] {
            S3Client client(options);
            for (bool isStored = false; !isStored;) {
                try {
                    const auto version = client.describeObject("k")->Version;
                    std::ostringstream bytes;
                    if (client.getObjectInfo("k")->Size != 0) {
                        client.getObject("k", bytes, 0, 0);
                    }
                    putOver(client, "k", bytes.str() + name, ExpectedObject::version(version));
                    isStored = true;
                } catch (const ResourceInUseException&) {  // somebody else was first
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    S3Client client(options);
    auto bytes = get(client, "k");
    std::sort(bytes.begin(), bytes.end());
    EXPECT_EQ(bytes, "abcdefgh");
}

}  // namespace storage::cloudprovider::test
