// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "soaking.hpp"

#include <foundation/storage/provider/IProvider.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/CloudClient.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace soak {

/// One file that several threads of a provider change at the same time, each a region of its own, which begins and ends
/// inside parts: each reads what it wrote. Threads: step by one for each region; the rest by one while nobody steps.
class RegionFile {
public:
    /// Stores the file. The provider and the store, on a way that does not fail, are referred to.
    RegionFile(std::uint64_t seed, std::string key, std::uint64_t partSize, std::size_t regions,
               const foundation::storage::provider::IProvider& provider, storage::cloudprovider::CloudClient& store);

    /// Do one operation on a region. Throws Finding, and what the provider throws unexpectedly.
    void step(std::size_t region);
    /// Store the file, and compare all of it.
    void finish();

private:
    struct Region {
        Dice dice;
        std::string bytes;
        Stream stream;
    };
    Stream open() const;

    // Set by the constructor, never changed.
    const std::string m_key;
    const foundation::storage::provider::StorageIRI m_file;
    const std::uint64_t m_size;  // of a region
    const foundation::storage::provider::IProvider& m_provider;
    storage::cloudprovider::CloudClient& m_store;

    Stream m_anchor;                // keeps the file open
    std::vector<Region> m_regions;  // each used by one thread
};

}  // namespace soak
