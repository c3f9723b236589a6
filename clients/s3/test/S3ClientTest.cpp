// SPDX-License-Identifier: Apache-2.0
#include "ScriptedServer.hpp"

#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/s3/S3Client.hpp>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <sstream>

namespace storage::cloudprovider::test {

namespace {

using End = Reply::End;

constexpr const char* kSecret = "very/secret";
constexpr const char* kToken = "token-of-the-session";
constexpr const char* kWrites = "x-amz-meta-cloudprovider-writes";
const std::string kCompleted = "<CompleteMultipartUploadResult><ETag>\"new-1\"</ETag></CompleteMultipartUploadResult>";

Reply error(int status, const std::string& code, const std::string& more = {}) {
    return {status,
            "<Error><Code>" + code + "</Code><Message>told</Message><RequestId>r1</RequestId>" + more + "</Error>"};
}

// The answer to a HEAD, or to what stores an object.
Reply object(const std::string& etag, const std::vector<std::string>& more = {}, const std::string& body = {}) {
    Reply reply{200, body, more};
    reply.Headers.push_back("ETag: \"" + etag + '"');
    return reply;
}

Reply range(const std::string& body, std::size_t first, End how = End::Stay) {
    const auto last = std::to_string(first + body.size() - 1);
    return {206, body, {"ETag: \"v\"", "Content-Range: bytes " + std::to_string(first) + '-' + last + "/100"}, how};
}

// "7 cannot ...": the host's code and the text of a failure.
template <class Action>
std::string failureOf(const Action& action) {
    try {
        action();
    } catch (const CloudException& failure) {
        return std::to_string(static_cast<int>(failure.getErrorCode())) + ' ' + failure.what();
    }
    return "none";
}

class S3ClientTest : public ::testing::Test {
protected:
    void SetUp() override { make({}); }

    void make(S3Options options) {
        options.Endpoint = m_server.url();
        options.Region = "us-east-1";
        options.Bucket = "b";
        options.Credentials = S3Credentials{"key-of-access", kSecret, kToken, {}};
        options.LongestWait = std::chrono::milliseconds(1);
        options.MostTries = 4;
        m_client = std::make_shared<S3Client>(options);
    }

    std::string put(const std::string& key, const std::string& bytes,
                    const ExpectedObject& expected = ExpectedObject::anything()) {
        std::istringstream data(bytes);
        return m_client->putObjectOver(key, data, bytes.size(), expected);
    }

    // Method, target below the bucket, and conditions of each request.
    std::vector<std::string> log() const {
        std::vector<std::string> lines;
        for (const auto& request : m_server.requests()) {
            auto line = request.Method + ' ' + request.Target.substr(2);
            for (const auto* const name : {"if-match", "if-none-match", "range", "x-amz-copy-source-if-match"}) {
                line += request.header(name).empty() ? "" : ' ' + request.header(name);
            }
            lines.push_back(line);
        }
        return lines;
    }

    ScriptedServer m_server;
    std::shared_ptr<S3Client> m_client;
};

using Log = std::vector<std::string>;

}  // namespace

TEST_F(S3ClientTest, WhatMayPassIsTriedAgain) {
    const Reply passing[] = {error(503, "SlowDown"),
                             {500, ""},
                             {429, "<html>"},
                             {200, "", {}, End::Drop},
                             error(409, "OperationAborted"),
                             error(400, "RequestTimeout"),
                             {200, "<ListBucketResult>"},
                             {200, "<ListBucketResult></ListBucketResult>", {}, End::Truncate}};
    std::string token;
    for (const auto& reply : passing) {
        m_server.next(reply);
        m_server.next({200, "<ListBucketResult/>"});
        EXPECT_TRUE(m_client->listObjects("", token, {}).empty()) << reply.Status;
    }
    EXPECT_EQ(m_server.requests().size(), 2 * std::size(passing));
    EXPECT_EQ(m_client->traffic().Requests, m_server.requests().size());
    EXPECT_GT(m_client->traffic().BytesReceived, 1000U);
    for (int round = 0; round < 4; ++round) {
        m_server.next(error(500, "InternalError"));
    }
    EXPECT_EQ(failureOf([&] { m_client->listObjects("p", token, {}); }),
              "9 cannot list \"p\" in s3://b: 500 InternalError: told (request r1)");
}

TEST_F(S3ClientTest, ABrokenDownloadGoesOnWhereItBroke) {
    m_server.next(range("0123456789", 10, End::Truncate));
    m_server.next(error(503, "SlowDown"));
    m_server.next(range("56789", 15));
    std::ostringstream sink;
    m_client->getRange("k", "v", {10, 10, false}, sink);
    EXPECT_EQ(sink.str(), "0123456789");
    m_server.next(object("v", {}, "01234567"));
    m_client->getObject("k", sink, 0, 0);
    m_server.next({200, "whole", {"ETag: \"v\""}, End::Truncate});
    m_server.next(error(412, "PreconditionFailed"));
    EXPECT_THROW(m_client->getObject("k", sink, 0, 0), ResourceInUseException);
    EXPECT_EQ(sink.str(), "012345678901234567wh");
    EXPECT_EQ(log(), (Log{"GET /k \"v\" bytes=10-19", "GET /k \"v\" bytes=15-19", "GET /k \"v\" bytes=15-19", "GET /k",
                          "GET /k", "GET /k \"v\" bytes=2-4"}));
}

TEST_F(S3ClientTest, AReaderGetsTheStartWithTheDescription) {
    struct Row {
        Reply reply;
        const char* start;
        std::uint64_t size;
        bool isAskedAgain = false;
    };
    const std::string hundred(100, 'x');
    const Row rows[] = {{range("0123456789", 0), "0123456789", 100},
                        {{206, "01234", {"ETag: \"v\"", "Content-Range: bytes 0-4/5"}}, "01234", 5},
                        {{200, "0123", {"ETag: \"v\""}}, "0123", 4},  // a store without ranges
                        {{200, hundred, {"ETag: \"v\""}}, "", 100, true},
                        {range("0123456789", 5), "", 100, true},
                        {error(416, "InvalidRange"), "", 0, true}};
    for (const auto& row : rows) {
        const auto before = m_server.requests().size();
        m_server.next({206, "01", {"ETag: \"w\"", "Content-Range: bytes 0-9/10", "Content-Length: 10"}, End::Truncate});
        m_server.next(row.reply);
        if (row.isAskedAgain) {
            m_server.next(object("v", {"Content-Length: " + std::to_string(row.size)}));
        }
        std::string start;
        const auto described = m_client->describeWithStart("k", 10, start);
        ASSERT_TRUE(described);
        EXPECT_EQ(start, row.start);
        EXPECT_EQ(described->Version, "v");
        EXPECT_EQ(described->Parts.back().Offset + described->Parts.back().Size, row.size);
        EXPECT_EQ(m_server.requests().size() - before, row.isAskedAgain ? 3U : 2U);
        EXPECT_EQ(m_server.requests().back().Method, row.isAskedAgain ? "HEAD" : "GET");
    }
    m_server.next(error(404, "NoSuchKey"));
    std::string start;
    EXPECT_FALSE(m_client->describeWithStart("k", 10, start));
}

TEST_F(S3ClientTest, WrongRangesAreNotWritten) {
    const Reply wrong[] = {range("0123456789x", 10),
                           range("0123456789", 11),
                           {200, std::string(10, 'x'), {"ETag: \"v\""}},
                           range("01234", 10),
                           object("other", {"Content-Range: bytes 10-19/20"}, "0123456789"),
                           {206,
                            "b\r\n0123456789x\r\n0\r\n\r\n",
                            {"ETag: \"v\"", "Content-Range: bytes 10-19/20", "Transfer-Encoding: chunked"}}};
    for (const auto& reply : wrong) {
        for (int round = 0; round < 4; ++round) {
            m_server.next(reply);
        }
        make({});
        std::ostringstream sink;
        EXPECT_THROW(m_client->getRange("k", "v", {10, 10, false}, sink), CloudException);
        EXPECT_EQ(sink.str(), "");
        make({});
    }
}

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

TEST_F(S3ClientTest, WhatWasWrongWithARequestIsCorrectedOnce) {
    m_server.next(error(400, "AuthorizationHeaderMalformed", "<Region>eu-west-3</Region>"));
    m_server.next(object("v"));
    put("k", "x");
    m_server.next({403, error(403, "RequestTimeTooSkewed").Body, {"Date: Fri, 01 Jan 2100 00:00:00 GMT"}});
    m_server.next(object("v"));
    put("k", "x");
    for (int round = 0; round < 2; ++round) {
        m_server.next({403, error(403, "RequestTimeTooSkewed").Body, {"Date: Fri, 01 Jan 2100 00:00:00 GMT"}});
    }
    const auto failure = failureOf([&] { put("k", "x"); });
    EXPECT_NE(failure.find("clock"), failure.npos) << failure;
    EXPECT_NE(m_server.requests().at(1).header("authorization").find("/eu-west-3/s3/"), std::string::npos);
    EXPECT_EQ(m_server.requests().at(3).header("x-amz-date").substr(0, 8), "21000101");
}

TEST_F(S3ClientTest, ARedirectIsFollowedWithinTheEndpointsDomainOnly) {
    ScriptedServer other;
    other.next(object("v"));
    m_server.next({307, "", {"Location: " + other.url() + "/elsewhere/k?x"}});
    EXPECT_EQ(put("k", "x"), "v");
    EXPECT_EQ(other.requests().at(0).Target, "/elsewhere/k");
    EXPECT_EQ(other.requests().at(0).Body, "x");
    for (const std::string location : {"http://localhost:1/b/k", "no url", "http://evil127.0.0.1/"}) {
        m_server.next({307, "", {"Location: " + location}});
        EXPECT_THROW(put("k", "x"), UnknownErrorException) << location;
    }
}

TEST_F(S3ClientTest, AStalledTransferIsTriedAgain) {
    S3Options options;
    options.StallTimeout = std::chrono::milliseconds(100);
    make(options);
    m_server.next({200, "", {}, End::Silence});
    m_server.next(object("v"));
    EXPECT_EQ(put("k", "x"), "v");
}

TEST_F(S3ClientTest, AnInterruptEndsTransfersAndWaits) {
    const auto start = std::chrono::steady_clock::now();
    m_server.next([](const ServedRequest&) {
        foundation::utInterruptState::RequestInterrupt();
        return Reply{200, "", {}, End::Silence};
    });
    foundation::setMainExecutionContext(true);
    EXPECT_THROW(put("k", "x"), foundation::OperationInterrupted);
    m_server.next(error(503, "SlowDown"));
    EXPECT_THROW(put("k", "x"), foundation::OperationInterrupted);
    foundation::setMainExecutionContext(false);
    m_server.next(object("v"));
    m_server.next(object("v"));
    EXPECT_NO_THROW(put("k", "x")) << "others are not interrupted";
    foundation::utInterruptState::ClearInterrupt();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST_F(S3ClientTest, FailuresSayWhatTheStoreSaidAndNoSecret) {
    struct Row {
        int status;
        const char* code;
        const char* text;
    };
    const Row rows[] = {{404, "NoSuchKey", "4 "},          {404, "NoSuchBucket", "1 "},
                        {403, "AccessDenied", "2 "},       {403, "InvalidAccessKeyId", "2 "},
                        {403, "QuotaExceeded", "9 "},      {403, "InvalidObjectState", "9 "},
                        {409, "InvalidBucketState", "6 "}, {413, "EntityTooLarge", "9 "},
                        {501, "NotImplemented", "11 "},    {507, "InsufficientStorage", "9 "}};
    for (const auto& row : rows) {
        auto reply = error(row.status, row.code);
        reply.Body.replace(reply.Body.find("told"), 4,
                           std::string("not ") + kSecret + ", " + kToken + " key-of-access");
        m_server.next(reply);
        const auto text = row.text + std::string("cannot remove \"k\" in s3://b: ") + std::to_string(row.status) + ' ' +
                          row.code + ": not *, * * (request r1)";
        const auto failure = failureOf([&] { m_client->deleteObject("k"); });
        EXPECT_EQ(failure, row.code == std::string("NoSuchKey") ? "none" : text);
    }
    m_server.next(error(403, "SignatureDoesNotMatch"));
    m_server.next(error(403, "SignatureDoesNotMatch"));
    EXPECT_THROW(m_client->getObjectInfo("k"), InvalidCredentialsException) << "a HEAD is explained by a GET";
    m_server.next({404, ""});
    m_server.next(error(404, "NoSuchBucket"));
    EXPECT_THROW(m_client->getObjectInfo("k"), InvalidLocationException);
    S3Options options;
    options.Bucket = "b";
    options.Credentials = S3Credentials{"k", "s", {}, {}};
    options.ConnectTimeout = std::chrono::seconds(1);
    options.LongestWait = std::chrono::milliseconds(1);
    for (const auto& [endpoint, words] :
         {std::pair{"http://127.0.0.1:1", "Failed to connect"}, {"http://no.such.host.invalid", "resolve"}}) {
        options.Endpoint = endpoint;
        const auto failure = failureOf([&] { S3Client(options).getObjectInfo("k"); });
        EXPECT_TRUE(failure.starts_with("9 cannot look up \"k\" in s3://b: ")) << failure;
        EXPECT_NE(failure.find(words), failure.npos) << failure;
    }
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

TEST_F(S3ClientTest, CredentialsAreAskedForAgainWhenTheyAreOver) {
    int asked = 0;
    S3Options options;
    options.Bucket = "b";
    options.Endpoint = m_server.url();
    options.CredentialSource = [&asked] {
        const auto lifetime = std::chrono::minutes(asked == 0 ? 1 : 60);
        return S3Credentials{"key" + std::to_string(++asked), "s", {}, std::chrono::system_clock::now() + lifetime};
    };
    S3Client client(options);
    const auto expectKey = [](const std::string& key) {
        return [key](const ServedRequest& request) {
            EXPECT_NE(request.header("authorization").find(key + '/'), std::string::npos) << key;
            return key == "key2" ? error(400, "ExpiredToken") : Reply{204};
        };
    };
    for (const auto* const key : {"key1", "key2", "key3", "key3"}) {
        m_server.next(expectKey(key));
    }
    for (int round = 0; round < 3; ++round) {
        client.deleteObject("k");
    }
    options.Anonymous = true;
    m_server.next({204});
    S3Client(options).deleteObject("k");
    EXPECT_EQ(m_server.requests().back().header("authorization"), "");
    EXPECT_EQ(asked, 3);
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

TEST_F(S3ClientTest, ListingsGoOnBehindEmptyPages) {
    S3Options options;
    options.KeyPrefix = "in/";
    make(options);
    m_server.next({200,
                   "<ListBucketResult><IsTruncated>true</IsTruncated><NextContinuationToken>t"
                   "</NextContinuationToken></ListBucketResult>"});
    m_server.next({200, "<ListBucketResult><Contents><Key>in/a</Key><Size>1</Size></Contents></ListBucketResult>"});
    std::string token;
    const auto page = m_client->listObjects("p", token, {"/", 5});
    EXPECT_EQ(page.at(0).Key, "a");
    EXPECT_EQ(token, "");
    EXPECT_EQ(log().back(),
              "GET ?continuation-token=t&delimiter=%2F&encoding-type=url&list-type=2&max-keys=5&prefix=in%2Fp");
    m_server.next({200, "<ListBucketResult><Contents><Key>out</Key><Size>1</Size></Contents></ListBucketResult>"});
    EXPECT_THROW(m_client->listObjects("", token, {}), UnknownErrorException);
    std::string tooLarge;
    tooLarge.resize(17'000'000, ' ');
    m_server.next({200, tooLarge});
    EXPECT_THROW(m_client->listObjects("", token, {}), UnknownErrorException);

    m_server.next({200,
                   "<ListMultipartUploadsResult><Upload><Key>in/b%20c</Key>"
                   "<UploadId>u</UploadId><Initiated>2020-01-02T03:04:05.000Z</Initiated></Upload><Upload>"
                   "<Key>in/a</Key><UploadId>w</UploadId></Upload></ListMultipartUploadsResult>"});
    m_server.next(error(404, "NoSuchUpload"));  // the key was encoded, though the answer does not say so
    m_server.next({200, "<ListPartsResult><Part><Size>7</Size></Part><Part><Size>3</Size></Part></ListPartsResult>"});
    m_server.next(error(404, "NoSuchUpload"));  // it went meanwhile
    const auto uploads = m_client->listUploads("", token);
    ASSERT_EQ(uploads.size(), 1U);
    EXPECT_EQ(uploads[0].Key + uploads[0].UploadId, "b cu");
    EXPECT_EQ(uploads[0].Size, 10U);

    const std::string goesOn =
        "<IsTruncated>true</IsTruncated><NextKeyMarker>k</NextKeyMarker>"
        "<NextPartNumberMarker>7</NextPartNumberMarker>";
    const std::string uploadsPage = "<ListMultipartUploadsResult>" + goesOn + "</ListMultipartUploadsResult>";
    m_server.next({200, uploadsPage});
    m_server.next({200, uploadsPage});
    EXPECT_TRUE(m_client->listUploads("", token).empty());
    EXPECT_EQ(token, "k&");
    EXPECT_THROW(m_client->listUploads("", token), UnknownErrorException) << "would go on for ever";
    const std::string parts = "<ListPartsResult>" + goesOn + "</ListPartsResult>";
    m_server.next({200, "<ListMultipartUploadsResult><Upload><Key>in/a</Key></Upload></ListMultipartUploadsResult>"});
    m_server.next({200, parts});
    m_server.next({200, parts});
    token.clear();
    EXPECT_THROW(m_client->listUploads("", token), UnknownErrorException) << "would go on for ever";
}

TEST_F(S3ClientTest, KeysTravelAsTheyAre) {
    const std::pair<std::string, std::string> rows[] = {{"a b", "/a%20b"},
                                                        {"a+b", "/a%2Bb"},
                                                        {"../x/./y//z", "/../x/./y//z"},
                                                        {"%20", "/%2520"},
                                                        {"n\nl", "/n%0Al"},
                                                        {"folder/", "/folder/"},
                                                        {"/", "//"},
                                                        {"\xF0\x9F\x98\x80", "/%F0%9F%98%80"}};
    for (const auto& [key, target] : rows) {
        m_server.next(object("v"));
        put(key, "x");
        EXPECT_EQ(log().back(), "PUT " + target);
    }
    for (const auto& key : {std::string(), std::string(1025, 'x'), std::string("a\0b", 3), std::string("\xFF")}) {
        EXPECT_THROW(put(key, "x"), InvalidLocationException) << key.size();
    }
    EXPECT_THROW(m_client->checkObjectName(std::string("a\0b", 3)), InvalidLocationException);
    EXPECT_FALSE(m_client->getObjectInfo(""));
}

// Where the head waits for the kernel's own acknowledgement, each of these takes 40 ms.
TEST_F(S3ClientTest, HeadsAreAcknowledgedAtOnce) {
    constexpr int kReads = 50;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kReads; ++i) {
        m_server.next(range("0123456789", 0, End::InTwo));
        std::ostringstream sink;
        m_client->getRange("k", "v", {0, 10, false}, sink);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, kReads * std::chrono::milliseconds(20));
    EXPECT_EQ(m_server.connections(), 1U);
}

TEST_F(S3ClientTest, ConnectionsAreKeptButNotAForkedParents) {
    for (int round = 0; round < 5; ++round) {
        m_server.next(object("v"));
    }
    put("k", "x");
    put("k", "x");
    EXPECT_EQ(m_server.connections(), 1U);
    const auto child = ::fork();
    if (child == 0) {
        ::_exit(put("k", "x") == "v" ? 0 : 1);
    }
    int status = 1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(m_server.connections(), 2U);
    put("k", "x");
    EXPECT_EQ(m_server.connections(), 2U) << "the parent's own still works";
}

}  // namespace storage::cloudprovider::test
