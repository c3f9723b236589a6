// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace storage::cloudprovider::s3 {

/// In bytes, with the prefix: AWS S3 user guide, "Creating object key names".
inline constexpr std::size_t kLongestKey = 1024;

/// AWS S3 API reference, DeleteObjects.
inline constexpr std::size_t kDeletedAtOnce = 1000;

/// In bytes; the last part of an upload may be smaller: AWS S3 user guide, multipart upload limits, as what follows.
/// Ranges of smaller objects cannot be copied: AWS S3 API reference, UploadPartCopy.
inline constexpr std::uint64_t kSmallestPart = 5 * 1024 * 1024;

/// 5 TiB.
inline constexpr std::uint64_t kLargestObject = std::uint64_t{5} << 40;

inline constexpr std::uint64_t kMostParts = 10'000;

}  // namespace storage::cloudprovider::s3
