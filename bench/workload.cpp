// SPDX-License-Identifier: Apache-2.0
#include "workload.hpp"

#include "harness.hpp"

#include <storage/cloudprovider/buildCloudProvider.hpp>

#include <algorithm>
#include <random>
#include <utility>

namespace bench {

namespace provider = foundation::storage::provider;
using Options = provider::ByteStreamOpenOptions;

std::shared_ptr<provider::IProvider> makeProvider(std::shared_ptr<storage::cloudprovider::CloudClient> client) {
    return storage::cloudprovider::buildCloudProvider(std::move(client),
                                                      storage::cloudprovider::FolderPolicy::ImplicitFolders, false);
}

std::shared_ptr<provider::IProvider> makeProvider(std::shared_ptr<storage::cloudprovider::CloudClient> client,
                                                  const storage::cloudprovider::ProviderOptions& options) {
    return storage::cloudprovider::buildCloudProvider(
        std::move(client), storage::cloudprovider::FolderPolicy::ImplicitFolders, false, options);
}

void writeFile(const provider::IProvider& provider, const std::string& path, std::uint64_t size) {
    const auto stream = provider.openStream(provider::StorageIRI::fromUtf8(path),
                                            {Options::Access::WriteOnly, Options::ExistingContent::Discard,
                                             Options::Presence::Optional, Options::WriteMode::Positioned});
    writeStream(*stream, size);
}

void writeStream(provider::ByteStream& stream, std::uint64_t size) {
    for (std::uint64_t offset = 0; offset < size; offset += kCallSize) {
        const auto count = static_cast<std::int64_t>(std::min<std::uint64_t>(kCallSize, size - offset));
        require(stream.write(callBuffer(), count) == count, "a write took less");
    }
    stream.close();
}

void writeOneByte(const provider::IProvider& provider, const std::string& path, Options::WriteMode mode,
                  std::uint64_t position) {
    const auto stream = provider.openStream(
        provider::StorageIRI::fromUtf8(path),
        {Options::Access::WriteOnly, Options::ExistingContent::Preserve, Options::Presence::Required, mode});
    stream->seek(static_cast<std::int64_t>(position), std::ios_base::beg);
    require(stream->write("x", 1) == 1, "the byte was not taken");
    stream->close();
}

void readStream(provider::ByteStream& stream, std::uint64_t size) {
    std::uint64_t total = 0;
    for (std::int64_t count = 0; count != -1; count = stream.read(callBuffer(), static_cast<std::int64_t>(kCallSize))) {
        total += static_cast<std::uint64_t>(count);
    }
    require(total == size, "a file read back shorter or longer");
}

void readFile(const provider::IProvider& provider, const std::string& path, std::uint64_t size) {
    const auto stream = provider.openReadOnlyStream(provider::StorageIRI::fromUtf8(path));
    readStream(*stream, size);
    stream->close();
}

std::vector<std::uint64_t> choosePlaces(std::uint64_t size, std::uint64_t readSize) {
    std::mt19937_64 random(1);
    std::vector<std::uint64_t> places(100);
    std::generate(places.begin(), places.end(), [&] { return random() % (size / readSize) * readSize; });
    return places;
}

}  // namespace bench
