// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Bucket.hpp"

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace storage::cloudprovider::s3 {

/// The parts that an object is described in: of one size, whatever it was uploaded in, since any range can be copied.
///
/// Values   tag: of each of them.
std::vector<PartInfo> uniformParts(std::uint64_t size, std::uint64_t smallestPart, const std::string& tag);

/// How the engine is told what is stored.
ObjectDescription describe(Bucket& bucket, const std::string& key, const ObjectHead& head);

/// What is stored, and in start its first bytes, in one request: a GET of a range answers what a HEAD does, too.
/// Nothing when there is no such object. Where the store does not give the range, as of an empty object, it is a HEAD,
/// and start stays empty.
///
/// Values   most: bytes, not 0.
std::optional<ObjectHead> headWithStart(Bucket& bucket, const std::string& key, std::uint64_t most, std::string& start);

}  // namespace storage::cloudprovider::s3
