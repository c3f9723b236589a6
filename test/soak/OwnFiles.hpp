// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "soaking.hpp"

#include <foundation/storage/provider/IProvider.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/CloudClient.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace soak {

/// Files that nobody else touches: random operations beside the bytes that must be there after each. Faults are met;
/// what a failed operation left is one of what it may leave. One thread.
class OwnFiles {
public:
    /// folder: an empty one, as the beginning of keys, with a "/" at its end. store: the same store, on a way that does
    /// not fail. Both are referred to.
    OwnFiles(std::uint64_t seed, std::string folder, std::uint64_t partSize,
             const foundation::storage::provider::IProvider& provider, storage::cloudprovider::CloudClient& store);

    /// Do one operation. Throws Finding, and what the provider throws unexpectedly.
    void step();
    /// Compare all files.
    void finish();

private:
    using Content = std::optional<std::string>;  // none: there is no such file

    std::string key(const std::string& name) const { return m_folder + name; }
    foundation::storage::provider::StorageIRI iri(const std::string& name) const;
    std::string pickName();
    Content content(const std::string& name) const;
    void remember(const std::string& name, const Content& content);
    /// What the store has of a file has to be one of these, and is remembered.
    void settle(const std::string& name, const std::vector<Content>& allowed, const std::string& after);
    void close(const Stream& stream, const std::string& name, std::vector<Content> allowed, const Content& written);
    void abandon(const Stream& stream, const std::string& name, const std::vector<Content>& allowed);

    void replace();
    void edit();
    void append();
    void read();
    void writeSequentially();
    void copy();
    void move();
    void remove();
    void create();
    void list();

    // Set by the constructor, never changed.
    const std::string m_folder;
    const std::uint64_t m_partSize;
    const foundation::storage::provider::IProvider& m_provider;
    storage::cloudprovider::CloudClient& m_store;

    Dice m_dice;
    std::map<std::string, std::string> m_files;  // by their names
};

}  // namespace soak
