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

/// Files that several clients, in several processes, write at the same time: whoever reads one gets a version that
/// somebody wrote, whole. A log that all append to has every record whose writer was told that it is stored, once.
///
/// Each has a client of its own: streams over one client share a file's content. One thread.
class SharedFiles {
public:
    /// writer: nobody else's name, without blanks. folder: as the beginning of keys, in which begin was called. The
    /// provider and the store, on a way that does not fail, are referred to.
    SharedFiles(std::uint64_t seed, std::string writer, std::string folder, std::uint64_t partSize,
                const foundation::storage::provider::IProvider& provider, storage::cloudprovider::CloudClient& store);

    /// Store first versions of all files.
    static void begin(const std::string& folder, storage::cloudprovider::CloudClient& store);

    /// Do one operation. Throws Finding, and what the provider throws unexpectedly.
    void step();
    /// Look for the records of this writer.
    void finish();

private:
    foundation::storage::provider::StorageIRI pickFile();
    std::string newVersion();
    void replace();
    void edit();
    void read();
    void append();

    // Set by the constructor, never changed.
    const std::string m_writer;
    const std::string m_folder;
    const std::uint64_t m_partSize;
    const foundation::storage::provider::IProvider& m_provider;
    storage::cloudprovider::CloudClient& m_store;

    Dice m_dice;
    std::uint64_t m_versions = 0;  // written so far
    std::vector<bool> m_records;   // by their numbers: whether it is known to be stored
};

}  // namespace soak
