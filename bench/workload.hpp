// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MemoryClient.hpp"

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/ProviderOptions.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// What users of a provider do, in calls of kCallSize.
namespace bench {

/// The sizes that the provider works with unless told otherwise.
inline constexpr std::uint64_t kPartSize = 5 * 1024 * 1024;
inline constexpr std::uint64_t kCacheSize = 100 * 1024 * 1024;

std::shared_ptr<foundation::storage::provider::IProvider> makeProvider(
    std::shared_ptr<storage::cloudprovider::CloudClient> client);
std::shared_ptr<foundation::storage::provider::IProvider> makeProvider(
    std::shared_ptr<storage::cloudprovider::CloudClient> client,
    const storage::cloudprovider::ProviderOptions& options);

/// Write a new file from its beginning to its end, and close it.
void writeFile(const foundation::storage::provider::IProvider& provider, const std::string& path, std::uint64_t size);

/// Write a stream that is open for that from where it is on, and close it.
void writeStream(foundation::storage::provider::ByteStream& stream, std::uint64_t size);

/// Open an existing file, write one byte at a position, or at the end in the mode Append, and close it.
void writeOneByte(const foundation::storage::provider::IProvider& provider, const std::string& path,
                  foundation::storage::provider::ByteStreamOpenOptions::WriteMode mode, std::uint64_t position);

/// Read a stream from its beginning to its end, which must come after size bytes.
void readStream(foundation::storage::provider::ByteStream& stream, std::uint64_t size);

/// Open a file, read all of it, and close it.
void readFile(const foundation::storage::provider::IProvider& provider, const std::string& path, std::uint64_t size);

/// A hundred random places in a file of that size to read so many bytes at: multiples of them, the same in each run.
std::vector<std::uint64_t> choosePlaces(std::uint64_t size, std::uint64_t readSize);

}  // namespace bench
