// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/CloudClient.hpp>
#include <storage/cloudprovider/testing/export.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace storage::cloudprovider::test {

/// Several streams of one file, beside what a plain text would make of the same operations.
///
/// Each step is one operation that the seed decides: opening, reading, writing, resizing, seeking, storing, abandoning,
/// closing, leaving the name, or another writer who replaces the object. What differs from the text fails the running
/// test; what the provider throws unexpectedly passes through. One thread.
class CLOUDPROVIDER_TESTING_EXPORT StreamModel {
public:
    /// Sizes in parts, which keep the file small.
    struct Shape {
        std::uint64_t partSize = 1;  ///< in bytes, as the provider has it
        std::uint64_t transfer = 3;  ///< most of a read or a write
        std::uint64_t object = 6;    ///< most of what is stored before the first step
        std::uint64_t file = 40;     ///< most that a seek goes to
        bool storesOddParts = true;  ///< the store takes parts of any size: what is stored before has odd ones
        bool tellsVersions = true;   ///< else nobody else writes meanwhile, and no file leaves its name
    };

    /// provider: serves file, and keeps it in the object of that key. store: the same store, on a way that does not
    /// fail; the model looks there for what is stored, and is the other writer. All are referred to.
    StreamModel(std::uint64_t seed, const Shape& shape, foundation::storage::provider::StorageIRI file, std::string key,
                foundation::storage::provider::IProvider& provider, CloudClient& store);

    /// Take one step, and compare what it did.
    void step();
    /// Close what is open.
    void finish();

private:
    struct Handle {
        std::unique_ptr<foundation::storage::provider::ByteStream> stream;
        std::uint64_t position = 0;
        bool isAtEnd = false;
        bool appends = false;
        bool reads = true;
        bool writes = true;
        bool hasChanged = false;  // since the file was stored
    };

    std::uint64_t pick(std::uint64_t least, std::uint64_t most);
    std::string randomBytes(std::uint64_t count);
    std::uint64_t pickAroundBorders(std::uint64_t mostParts);
    Handle& anyStream();
    void storeSomething();
    void open();
    void use(Handle& handle, std::uint64_t choice);
    void read(Handle& handle);
    void write(Handle& handle);
    void resize(Handle& handle);
    void noteStored();
    void store(const Handle& handle);
    void abandon(const Handle& handle);
    void letAnotherWriterIn();
    void detach(const Handle& handle);
    void seek(Handle& handle);
    void close(Handle& handle);

    // Set by the constructor, never changed.
    const Shape m_shape;
    const foundation::storage::provider::StorageIRI m_file;
    const std::string m_key;
    foundation::storage::provider::IProvider& m_provider;
    CloudClient& m_store;

    std::mt19937_64 m_random;
    std::optional<std::string> m_stored;
    std::string m_bytes;
    bool m_isChanged = false;         // since the file was stored
    bool m_isCountedOn = false;       // by a stream that closed with a change that is not stored
    bool m_replacesAnything = false;  // the file was opened with Discard, and not stored since
    std::vector<Handle> m_streams;
};

}  // namespace storage::cloudprovider::test
