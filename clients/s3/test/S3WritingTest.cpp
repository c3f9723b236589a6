// SPDX-License-Identifier: Apache-2.0
#include "S3ClientTest.hpp"

#include <algorithm>
#include <cctype>

namespace storage::cloudprovider::test {

namespace {

using End = Reply::End;

constexpr const char* kWrites = "x-amz-meta-cloudprovider-writes";
const std::string kCompleted = "<CompleteMultipartUploadResult><ETag>\"new-1\"</ETag></CompleteMultipartUploadResult>";

}  // namespace

TEST_F(S3ClientTest, AnErrorInASuccessIsAFailure) {
    const std::string id = "cp1:w:base:id";
    m_server.next(error(200, "InternalError"));
    m_server.next({200, kCompleted});
    EXPECT_EQ(m_client->completeUploadOver("k", id, {{0, 0, 1, "t"}}, ExpectedObject::anything()), "new-1");
    m_server.next(error(200, "EntityTooSmall"));
    m_server.next(object("old"));
    EXPECT_EQ(failureOf([&] {
                  m_client->completeMultipartUpload("k", id, {{0, 0, 1, "t"}});
              }),
              "9 cannot complete the upload of \"k\" in s3://b: 200 EntityTooSmall: told (request r1)");
    m_server.next(error(200, "AccessDenied"));
    EXPECT_THROW(m_client->copyRange("k", id, {1, 6'000'000, 6'000'000, {}}, "v"), CloudException);
    EXPECT_NE(m_server.requests().at(0).Body.find("<PartNumber>1</PartNumber><ETag>\"t\"</ETag>"), std::string::npos);
}

// The write's id is in what was sent: the server shows what it stored by it.
TEST_F(S3ClientTest, ALostAnswerOfAConditionalWriteIsSettledByLooking) {
    enum class Stored { Ours, OursAndALaterOne, Theirs };
    for (const auto stored : {Stored::Ours, Stored::OursAndALaterOne, Stored::Theirs}) {
        std::string id;
        m_server.next([&](const ServedRequest& request) {
            id = request.header(kWrites);
            return Reply{200, "", {}, End::Drop};
        });
        m_server.next(error(412, "PreconditionFailed"));
        m_server.next([&](const ServedRequest&) {
            const auto ids = stored == Stored::Ours ? id : stored == Stored::Theirs ? "theirs" : "theirs," + id;
            return object("now", {std::string(kWrites) + ": " + ids});
        });
        if (stored == Stored::Theirs) {
            EXPECT_EQ(failureOf([&] { put("k", "x", ExpectedObject::absent()); }),
                      "6 cannot put \"k\" in s3://b: it was created meanwhile");
        } else {
            const auto version = put("k", "x", ExpectedObject::absent());
            EXPECT_EQ(version == "now", stored == Stored::Ours) << version;
        }
    }
    EXPECT_EQ(log().at(1), "PUT /k *");
    EXPECT_EQ(log().size(), 9U);
}

TEST_F(S3ClientTest, EachEditNamesTheWritesBeforeIt) {
    m_server.next(object("v1", {std::string(kWrites) + ": b,a"}));
    m_client->describeObject("k");
    m_server.next(object("v2"));
    put("k", "x", ExpectedObject::version("v1"));
    m_server.next(object("v3"));
    put("k", "x", ExpectedObject::version("v2"));
    m_server.next(object("v4"));
    put("k", "x");
    const auto ids = [&](std::size_t at) { return m_server.requests().at(at).header(kWrites); };
    EXPECT_EQ(ids(1).substr(16), ",b,a");
    EXPECT_EQ(ids(2).substr(16), ',' + ids(1));
    EXPECT_EQ(ids(3).size(), 16U) << "what replaces anything is an edit of nothing";

    std::string many = "0123456789abcdef";
    for (int i = 0; i < 15; ++i) {
        many += ",0123456789abcdef";
    }
    m_server.next(object("v5", {std::string(kWrites) + ": " + many}));
    m_client->describeObject("k");
    m_server.next(object("v6"));
    put("k", "x", ExpectedObject::version("v5"));
    EXPECT_EQ(ids(5).substr(16), ',' + many.substr(0, 14 * 17 - 1)) << "stores take no longer values than of 256 bytes";
}

TEST_F(S3ClientTest, AStoreThatWantsNoQuotesGetsNone) {
    m_server.next(object("v"));
    m_server.next(error(412, "PreconditionFailed"));
    m_server.next(object("v"));
    m_server.next(object("w"));
    EXPECT_EQ(put("k", "x", ExpectedObject::version("v")), "w");
    m_server.next(object("x"));
    put("k", "x", ExpectedObject::version("w"));
    EXPECT_EQ(log(), (Log{"HEAD /k", "PUT /k \"v\"", "HEAD /k", "PUT /k v", "PUT /k w"}));
}

TEST_F(S3ClientTest, AStoreWithoutConditionsIsLookedAtBefore) {
    m_server.next(error(501, "NotImplemented"));
    m_server.next(error(404, ""));
    m_server.next(error(404, "NoSuchKey"));  // the HEAD's code
    m_server.next(object("w"));
    EXPECT_EQ(put("k", "x", ExpectedObject::absent()), "w");
    m_server.next(object("theirs"));
    EXPECT_THROW(put("k", "x", ExpectedObject::absent()), ResourceInUseException);
    EXPECT_EQ(log(), (Log{"PUT /k *", "HEAD /k", "GET /k bytes=0-0", "PUT /k", "HEAD /k"}));
}

TEST_F(S3ClientTest, AnEditKeepsWhatTheObjectHas) {
    const std::vector<std::string> headers{"Content-Type: text/html",   "Content-Encoding: gzip",
                                           "Content-Language: de",      "Content-Disposition: inline",
                                           "Cache-Control: no-cache",   "Expires: soon",
                                           "x-amz-meta-who: me",        "x-amz-meta-empty:",
                                           "x-amz-storage-class: COLD", "x-amz-server-side-encryption: aws:kms",
                                           "x-amz-tagging-count: 2",    "X-Other: x"};
    const auto expectKept = [&](const ServedRequest& request) {
        for (std::size_t at = 0; at + 2 < headers.size(); ++at) {
            const auto colon = headers[at].find(':');
            auto name = headers[at].substr(0, colon);
            std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
            const auto blank = headers[at].find_first_not_of(' ', colon + 1);
            EXPECT_EQ(request.header(name), blank == std::string::npos ? "" : headers[at].substr(blank)) << name;
            EXPECT_EQ(request.Headers.count(name), 1U) << name;
        }
        EXPECT_EQ(request.header("x-amz-tagging"), "a=1&b%20c=%26");
        EXPECT_EQ(request.header("x-other"), "");
    };
    const Reply tags{200,
                     "<Tagging><TagSet><Tag><Key>b c</Key><Value>&amp;</Value></Tag><Tag><Key>a</Key>"
                     "<Value>1</Value></Tag></TagSet></Tagging>"};
    m_server.next(object("v", headers));
    const auto description = m_client->describeObject("k");
    m_server.next(tags);
    m_server.next([&](const ServedRequest& request) { return expectKept(request), object("w"); });
    put("k", "x", ExpectedObject::version("v"));

    // What was stored by this client since it was described is kept from memory.
    for (const auto& tag : {std::string(), description->Parts.at(0).Tag}) {
        if (!tag.empty()) {
            make({});
            m_server.next(object("v", headers));
        }
        m_server.next(tags);
        m_server.next([&](const ServedRequest& request) {
            expectKept(request);
            return Reply{200, "<InitiateMultipartUploadResult><UploadId>u</UploadId></InitiateMultipartUploadResult>"};
        });
        m_client->startMultipartUpload("k", tag);
    }

    for (const std::string header : {"x-amz-object-lock-mode: COMPLIANCE", "x-amz-missing-meta: 1"}) {
        m_server.next(object("locked", {header}));
        EXPECT_THROW(put("k", "x", ExpectedObject::version("locked")), UnsupportedOperationException);
    }
    m_server.next(object("denied", {"x-amz-tagging-count: 1"}));
    m_server.next(error(403, "AccessDenied"));
    EXPECT_THROW(put("k", "x", ExpectedObject::version("denied")), UnsupportedOperationException);
}

TEST_F(S3ClientTest, NewObjectsBeginAsTheOptionsSay) {
    S3Options options;
    options.StorageClass = "COLD";
    options.Encryption = "AES256";
    options.RequesterPays = true;
    options.KeyPrefix = "in/";
    make(options);
    m_server.next(object("v"));
    put("k", "x");
    const auto request = m_server.requests().at(0);
    EXPECT_EQ(request.Target, "/b/in/k");
    EXPECT_EQ(request.header("x-amz-storage-class") + request.header("x-amz-server-side-encryption") +
                  request.header("x-amz-request-payer") + request.header("x-amz-security-token"),
              "COLDAES256requester" + std::string(kToken));
}

TEST_F(S3ClientTest, ACompletionWithoutAnAnswerIsFoundAgain) {
    m_server.next({200, "<InitiateMultipartUploadResult><UploadId>u</UploadId></InitiateMultipartUploadResult>"});
    const auto id = m_client->startMultipartUpload("k", {});
    const auto writeId = m_server.requests().at(0).header(kWrites);
    const std::vector<PartInfo> parts{{0, 0, 3, "a"}, {7, 3, 4, "b"}};
    for (int round = 0; round < 4; ++round) {
        m_server.next(error(500, "InternalError"));
    }
    m_server.next(error(500, "InternalError"));  // nor does the look say anything
    for (int round = 0; round < 3; ++round) {
        m_server.next(error(500, "InternalError"));
    }
    EXPECT_THROW(m_client->completeUploadOver("k", id, parts, ExpectedObject::anything()), UnknownErrorException);
    m_server.next(object("other", {"Content-Length: 7"}));
    EXPECT_EQ(m_client->describeObject("k")->Parts.size(), 1U);
    m_server.next(object("ours", {"Content-Length: 7", std::string(kWrites) + ": " + writeId}));
    const auto described = m_client->describeObject("k");
    ASSERT_EQ(described->Parts.size(), 2U);
    EXPECT_EQ(described->Parts[1].Index, 7U);
    EXPECT_EQ(described->Parts[1].Tag, "b");
    EXPECT_EQ(m_server.requests().at(1).Target, "/b/k?uploadId=u");
}

TEST_F(S3ClientTest, AnUploadWhoseBeginningWasLostIsEnded) {
    const auto started = [](const std::string& id, const std::string& time) {
        return "<Upload><Key>k</Key><UploadId>" + id + "</UploadId><Initiated>" + time + "</Initiated></Upload>";
    };
    const std::string none = "<ListPartsResult/>";
    // Once libcurl has a connection to keep it sends again by itself what got no answer there.
    for (int round = 0; round < 2; ++round) {
        m_server.next({200, "", {}, End::Drop});
        m_server.next({200,
                       "<InitiateMultipartUploadResult><UploadId>u</UploadId></InitiateMultipartUploadResult>",
                       {"Date: Sun, 06 Nov 1994 08:49:37 GMT"}});
        const auto id = m_client->startMultipartUpload("k", {});
        m_server.next({204});
        m_server.next({200, "<ListMultipartUploadsResult>" + started("lost", "1994-11-06T08:49:36.500Z") +
                                started("busy", "1994-11-06T08:49:36.500Z") +
                                started("older", "1994-11-06T08:49:30.000Z") + "</ListMultipartUploadsResult>"});
        m_server.next({200, none});
        m_server.next({200, "<ListPartsResult><Part><Size>1</Size></Part></ListPartsResult>"});
        m_server.next({200, none});
        m_server.next({204});
        m_client->abortMultipartUpload("k", id);
        EXPECT_EQ(log().back(), "DELETE /k?uploadId=lost");
        EXPECT_EQ(log().size(), 8U * static_cast<unsigned>(round + 1));
    }
}

TEST_F(S3ClientTest, ACompletionLooksBeforeUnlessTheStoreIsTrusted) {
    for (const bool isTrusted : {false, true}) {
        S3Options options;
        options.HonoursAllConditions = isTrusted;
        make(options);
        if (!isTrusted) {
            m_server.next(object("v"));
        }
        m_server.next({200, "<CompleteMultipartUploadResult><ETag></ETag></CompleteMultipartUploadResult>"});
        m_server.next(object("w", {std::string(kWrites) + ": id"}));
        EXPECT_EQ(m_client->completeUploadOver("k", "cp1:id::u", {{0, 0, 1, "t"}}, ExpectedObject::version("v")), "w");
    }
    m_server.next(error(412, "PreconditionFailed"));
    m_server.next(object("theirs"));
    EXPECT_THROW(m_client->completeUploadOver("k", "cp1:id::u", {{0, 0, 1, "t"}}, ExpectedObject::version("v")),
                 ResourceInUseException);
    EXPECT_EQ(log(), (Log{"HEAD /k", "POST /k?uploadId=u \"v\"", "HEAD /k", "POST /k?uploadId=u \"v\"", "HEAD /k",
                          "POST /k?uploadId=u \"v\"", "HEAD /k"}));
}

TEST_F(S3ClientTest, WhatIsTooLargeForOneCopyIsCopiedInPieces) {
    const auto size = std::to_string(6ULL << 30U);
    m_server.next(object("v", {"Content-Length: " + size, "Content-Type: text/html"}));
    m_server.next({200, "<InitiateMultipartUploadResult><UploadId>u</UploadId></InitiateMultipartUploadResult>"});
    m_server.next({200, "<CopyPartResult><ETag>a</ETag></CopyPartResult>"});
    m_server.next({200, "<CopyPartResult><ETag>b</ETag></CopyPartResult>"});
    m_server.next(object("v"));
    m_server.next(object("there"));
    m_server.next({204});
    EXPECT_THROW(m_client->copyObject("k", "v", "to", ExpectedObject::absent()), ResourceInUseException);
    EXPECT_EQ(m_server.requests().at(1).header("content-type"), "text/html");
    EXPECT_EQ(m_server.requests().at(3).header("x-amz-copy-source-range"), "bytes=5368709120-6442450943");
    EXPECT_EQ(log(), (Log{"HEAD /k", "POST /to?uploads=", "PUT /to?partNumber=1&uploadId=u \"v\"",
                          "PUT /to?partNumber=9&uploadId=u \"v\"", "HEAD /k", "HEAD /to", "DELETE /to?uploadId=u"}));
}

TEST_F(S3ClientTest, RunsAreCopiedInOneGoAndSmallOnesTravel) {
    constexpr std::uint64_t kMiB = 1024 * 1024;
    const std::string copied = "<CopyPartResult><ETag>abc</ETag></CopyPartResult>";
    m_server.next({200, copied});
    const auto records = m_client->copyRun(
        "k", "u", {{2, 10 * kMiB, 5 * kMiB, {}}, {3, 15 * kMiB, 5 * kMiB, {}}, {4, 20 * kMiB, 1, {}}}, "v");
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].Index, 2U);
    EXPECT_EQ(records[0].Size, 10 * kMiB + 1);
    EXPECT_EQ(records[0].Tag, "abc");
    EXPECT_EQ(m_server.requests().at(0).header("x-amz-copy-source-range"), "bytes=10485760-20971520");
    EXPECT_EQ(m_server.requests().at(0).header("x-amz-copy-source"), "/b/k");

    m_server.next(range("abc", 0));
    m_server.next(object("part"));
    EXPECT_EQ(m_client->copyRange("k", "cp1:w:base:u", {0, 0, 3, {}}, "v"), "part\"base\"");
    EXPECT_EQ(m_server.requests().at(2).Body, "abc");

    m_server.next({200, copied});
    m_server.next({200, copied});
    constexpr std::uint64_t kGiB = 1024 * kMiB;
    const auto pieces = m_client->copyRun(
        "k", "u", {{0, 0, 3 * kGiB, {}}, {1, 3 * kGiB, 2 * kGiB, {}}, {2, 5 * kGiB, 1 * kGiB, {}}}, "v");
    EXPECT_EQ(pieces.size(), 2U);
    EXPECT_EQ(pieces.back().Index, 2U);

    // A store that refuses what is there is looked at after each copy.
    m_server.next(error(412, "PreconditionFailed"));
    m_server.next(object("v"));
    m_server.next({200, copied});
    m_server.next(object("theirs"));
    EXPECT_EQ(failureOf([&] {
                  m_client->copyRange("k", "u", {2, 10 * kMiB, 1, {}}, "v");
              }),
              "6 cannot copy a part of \"k\" in s3://b: what is copied was replaced meanwhile");
    EXPECT_EQ(log(),
              (Log{"PUT /k?partNumber=3&uploadId=u \"v\"", "GET /k \"v\" bytes=0-2", "PUT /k?partNumber=1&uploadId=u",
                   "PUT /k?partNumber=1&uploadId=u \"v\"", "PUT /k?partNumber=3&uploadId=u \"v\"",
                   "PUT /k?partNumber=3&uploadId=u \"v\"", "HEAD /k", "PUT /k?partNumber=3&uploadId=u", "HEAD /k"}));
}

TEST_F(S3ClientTest, KeysAreRemovedTogetherAndEachFailureIsTold) {
    m_server.next({200,
                   "<DeleteResult><Error><Key>a</Key><Code>AccessDenied</Code><Message>no</Message></Error>"
                   "<Error><Key>c</Key><Code>InternalError</Code></Error></DeleteResult>"});
    m_server.next({204, ""});
    // A key that XML cannot carry goes first, by itself.
    m_server.next({200, "<DeleteResult/>"});
    EXPECT_EQ(failureOf([&] {
                  m_client->deleteObjects({"a", "b", "c"});
              }),
              "2 cannot remove objects of s3://b: 403 AccessDenied: \"a\": AccessDenied no, \"c\": InternalError");
    m_client->deleteObjects({"x\ny", "a<b"});
    EXPECT_EQ(log(), (Log{"POST ?delete=", "DELETE /x%0Ay", "POST ?delete="}));
    EXPECT_NE(m_server.requests().at(2).Body.find("<Key>a&lt;b</Key>"), std::string::npos);
    EXPECT_EQ(m_server.requests().at(2).header("content-md5").size(), 24U);
    EXPECT_EQ(m_client->limits().DeletedAtOnce, 1000U);
}

}  // namespace storage::cloudprovider::test
