// SPDX-License-Identifier: Apache-2.0
#include "RegionFile.hpp"

#include <storage/cloudprovider/storeStream.hpp>
#include <storage/cloudprovider/testing/stored.hpp>

#include <utility>

namespace soak {

using foundation::storage::provider::StorageIRI;

RegionFile::RegionFile(std::uint64_t seed, std::string key, std::uint64_t partSize, std::size_t regions,
                       const foundation::storage::provider::IProvider& provider,
                       storage::cloudprovider::CloudClient& store)
    : m_key(std::move(key)),
      m_file(StorageIRI::fromUtf8("/" + m_key)),
      m_size(2 * partSize + partSize / 3),
      m_provider(provider),
      m_store(store) {
    storage::cloudprovider::test::storeObject(store, m_key, std::string(regions * m_size, '-'));
    m_anchor = open();
    for (std::size_t region = 0; region < regions; ++region) {
        m_regions.push_back({Dice(seed + region), std::string(m_size, '-'), open()});
    }
}

void RegionFile::step(std::size_t region) {
    auto& dice = m_regions[region].dice;
    auto& bytes = m_regions[region].bytes;
    auto& stream = m_regions[region].stream;  // clang 14 lets no lambda use a structured binding
    const auto begin = region * m_size;
    const auto at = dice.pick(0, m_size - 1);
    const auto count = dice.pick(1, m_size - at);
    const auto choice = dice.pick(0, 9);
    if (choice < 5) {
        const auto piece = dice.bytes(count);
        writeAt(*stream, begin + at, piece);
        bytes.replace(at, count, piece);
    } else if (choice < 8) {
        if (readAt(*stream, begin + at, count) != bytes.substr(at, count)) {
            throw Finding("a region of " + m_key + " is not read as it was written, from byte " +
                          std::to_string(begin + at) + " on, " + std::to_string(count) + " bytes");
        }
    } else if (choice < 9) {
        succeeds([&] { storage::cloudprovider::storeStream(*stream); });
    } else {
        insist([&] { stream->close(); });
        stream = open();
    }
}

void RegionFile::finish() {
    for (auto& region : m_regions) {
        insist([&] { region.stream->close(); });
    }
    insist([&] { storage::cloudprovider::storeStream(*m_anchor); });
    insist([&] { m_anchor->close(); });
    std::string expected;
    for (const auto& region : m_regions) {
        expected += region.bytes;
    }
    if (storage::cloudprovider::test::contentOf(m_store, m_key) != expected) {
        throw Finding(m_key + " is not stored as its threads wrote it");
    }
}

Stream RegionFile::open() const {
    return insist([&] { return m_provider.openStream(m_file, toUpdate()); });
}

}  // namespace soak
