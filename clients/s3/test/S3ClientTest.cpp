// SPDX-License-Identifier: Apache-2.0
#include "S3ClientTest.hpp"

#include <chrono>
#include <sstream>

namespace storage::cloudprovider::test {

Reply error(int status, const std::string& code, const std::string& more) {
    return {status,
            "<Error><Code>" + code + "</Code><Message>told</Message><RequestId>r1</RequestId>" + more + "</Error>"};
}

Reply object(const std::string& etag, const std::vector<std::string>& more, const std::string& body) {
    Reply reply{200, body, more};
    reply.Headers.push_back("ETag: \"" + etag + '"');
    return reply;
}

Reply range(const std::string& body, std::size_t first, Reply::End how) {
    const auto last = std::to_string(first + body.size() - 1);
    return {206, body, {"ETag: \"v\"", "Content-Range: bytes " + std::to_string(first) + '-' + last + "/100"}, how};
}

void S3ClientTest::make(S3Options options) {
    options.Endpoint = m_server.url();
    options.Region = "us-east-1";
    options.Bucket = "b";
    options.Credentials = S3Credentials{"key-of-access", kSecret, kToken, {}};
    options.LongestWait = std::chrono::milliseconds(1);
    options.MostTries = 4;
    m_client = std::make_shared<S3Client>(options);
}

std::string S3ClientTest::put(const std::string& key, const std::string& bytes, const ExpectedObject& expected) {
    std::istringstream data(bytes);
    return m_client->putObjectOver(key, data, bytes.size(), expected);
}

S3ClientTest::Log S3ClientTest::log() const {
    Log lines;
    for (const auto& request : m_server.requests()) {
        auto line = request.Method + ' ' + request.Target.substr(2);
        for (const auto* const name : {"if-match", "if-none-match", "range", "x-amz-copy-source-if-match"}) {
            line += request.header(name).empty() ? "" : ' ' + request.header(name);
        }
        lines.push_back(line);
    }
    return lines;
}

}  // namespace storage::cloudprovider::test
