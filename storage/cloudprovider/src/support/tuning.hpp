// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace storage::cloudprovider {

/// 5 MiB: S3 refuses smaller parts but for the last one (AWS S3 user guide, multipart upload limits).
inline constexpr std::uint64_t kDefaultPartSize = 5 * 1024 * 1024;

/// 100 MiB, twenty parts of the default size.
inline constexpr std::uint64_t kDefaultDownloadedPartCacheSize = 20 * kDefaultPartSize;

/// Most parts that writing may give a file; each costs some hundred bytes of memory. S3 allows 10,000 (AWS S3
/// user guide, multipart upload limits), other stores more.
inline constexpr std::uint64_t kMaxPartCount = 1'000'000;

/// How many of an object's first bytes to take along when it is looked up to be read. Those of a larger object may be
/// sent for nothing: that should take no longer than a request does.
inline constexpr std::uint64_t kMostStart = std::uint64_t{64} * 1024;

/// Read the part size in bytes from the environment variable VX_CLOUD_PART_SIZE_OVERRIDE, as std::stoull
/// does; the default when it is not set, empty or not a number. Never throws for the value.
std::uint64_t readPartSize();

/// Read the size in bytes of the cache of downloaded parts from VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE, likewise.
std::uint64_t readDownloadedPartCacheSize();

}  // namespace storage::cloudprovider
