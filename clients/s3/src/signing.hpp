// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/s3/S3Options.hpp>

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace storage::cloudprovider::s3 {

/// Names and values, in any order.
using Fields = std::vector<std::pair<std::string, std::string>>;

/// What of a request is signed.
struct SignedParts {
    std::string Method;
    std::string Path;         ///< percent-encoded once, begins with "/"
    Fields Query;             ///< names and values that are not encoded yet
    Fields Headers;           ///< all of them are signed; "host" has to be there
    std::string PayloadHash;  ///< as x-amz-content-sha256 tells it
};

/// The value of "x-amz-date", such as 20130524T000000Z.
std::string toAmzDate(std::chrono::system_clock::time_point time);

/// A query as it stands after the "?", encoded and in the order in which it is signed.
std::string toQueryString(const Fields& query);

/// The value of "Authorization" by AWS Signature Version 4 (AWS S3 API reference, "Authenticating Requests (AWS
/// Signature Version 4)").
///
/// Values   amzDate: as toAmzDate. region: such as us-east-1.
std::string makeAuthorization(const SignedParts& request, const S3Credentials& credentials, std::string_view amzDate,
                              std::string_view region);

}  // namespace storage::cloudprovider::s3
