// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ScriptedServer.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/s3/S3Client.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace storage::cloudprovider::test {

inline constexpr const char* kSecret = "very/secret";
inline constexpr const char* kToken = "token-of-the-session";

/// An answer that is an error.
Reply error(int status, const std::string& code, const std::string& more = {});

/// The answer to a HEAD, or to what stores an object.
Reply object(const std::string& etag, const std::vector<std::string>& more = {}, const std::string& body = {});

/// The answer to a request for a range of an object of 100 bytes.
Reply range(const std::string& body, std::size_t first, Reply::End how = Reply::End::Stay);

/// "7 cannot ...": the host's code and the text of a failure; "none".
template <class Action>
std::string failureOf(const Action& action) {
    try {
        action();
    } catch (const CloudException& failure) {
        return std::to_string(static_cast<int>(failure.getErrorCode())) + ' ' + failure.what();
    }
    return "none";
}

/// A client of a server that answers by a script.
class S3ClientTest : public ::testing::Test {
protected:
    using Log = std::vector<std::string>;

    void SetUp() override { make({}); }

    /// Make the client anew: with these options, but for where the server is, credentials and short waits.
    void make(S3Options options);

    std::string put(const std::string& key, const std::string& bytes,
                    const ExpectedObject& expected = ExpectedObject::anything());

    /// Method, target below the bucket, and conditions of each request.
    Log log() const;

    ScriptedServer m_server;
    std::shared_ptr<S3Client> m_client;
};

}  // namespace storage::cloudprovider::test
