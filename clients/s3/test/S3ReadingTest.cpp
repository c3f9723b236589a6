// SPDX-License-Identifier: Apache-2.0
#include "S3ClientTest.hpp"

#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/InterruptState.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>

namespace storage::cloudprovider::test {

namespace {

using End = Reply::End;

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
