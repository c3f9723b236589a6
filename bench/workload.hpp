// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MemoryClient.hpp"

#include <foundation/storage/provider/IProvider.hpp>

#include <cstdint>
#include <memory>
#include <string>

/// What users of a provider do, in calls of kCallSize.
namespace bench {

/// The sizes that the provider works with unless told otherwise.
inline constexpr std::uint64_t kPartSize = 5 * 1024 * 1024;
inline constexpr std::uint64_t kCacheSize = 100 * 1024 * 1024;

std::shared_ptr<foundation::storage::provider::IProvider> makeProvider(
    std::shared_ptr<storage::cloudprovider::CloudClient> client);

/// Write a new file from its beginning to its end, and close it.
void writeFile(const foundation::storage::provider::IProvider& provider, const std::string& path, std::uint64_t size);

/// Read a stream from its beginning to its end, which must come after size bytes.
void readStream(foundation::storage::provider::ByteStream& stream, std::uint64_t size);

/// Open a file, read all of it, and close it.
void readFile(const foundation::storage::provider::IProvider& provider, const std::string& path, std::uint64_t size);

}  // namespace bench
