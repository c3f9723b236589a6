// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Bucket.hpp"

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace storage::cloudprovider::s3 {

/// Most bytes of a part, of a put and of a copy in one go (AWS S3 user guide, multipart upload limits; AWS S3 API
/// reference, CopyObject).
inline constexpr std::uint64_t kLargestPart = 5ULL * 1024 * 1024 * 1024;

/// Store an object in one go; answers its version.
std::string putObject(Bucket& bucket, const std::string& key, std::istream& data, std::uint64_t size,
                      const ExpectedObject& expected);

/// Copy at most kLargestPart bytes in one go.
void copyWhole(Bucket& bucket, const std::string& from, const ObjectHead& source, const std::string& to,
               const ExpectedObject& expected);

void deleteObject(Bucket& bucket, const std::string& key);

/// Remove several objects, those that XML can carry in one request.
///
/// Errors   S3Failure that names each key that is left, with the code of the first.
void deleteObjects(Bucket& bucket, const std::vector<std::string>& keys);

}  // namespace storage::cloudprovider::s3
