// SPDX-License-Identifier: Apache-2.0
#include "checksums.hpp"

// Compiled into this file, so that nobody who links the client needs the library.
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <boost/endian/conversion.hpp>

#include <array>

static_assert(XXH_VERSION_NUMBER >= 800, "what XXH3 answers is fixed since 0.8.0");

namespace storage::cloudprovider::sqlite {

namespace {

std::int64_t sum(std::string_view bytes, std::uint64_t seed) {
    return static_cast<std::int64_t>(XXH3_64bits_withSeed(bytes.data(), bytes.size(), seed));
}

}  // namespace

void RowImage::add(std::int64_t value) {
    std::array<unsigned char, sizeof(value)> bytes{};
    boost::endian::store_little_s64(bytes.data(), value);
    m_bytes.append(bytes.begin(), bytes.end());
}

void RowImage::add(std::string_view bytes) {
    add(static_cast<std::int64_t>(bytes.size()));
    m_bytes.append(bytes);
}

std::int64_t RowImage::sum(Table table) const {
    return sqlite::sum(m_bytes, static_cast<std::uint64_t>(table));
}

std::int64_t sumChunk(std::int64_t chunk, std::string_view bytes) {
    return sum(bytes, static_cast<std::uint64_t>(chunk));
}

std::int64_t sumKey(std::string_view key) {
    return sum(key, 0);
}

}  // namespace storage::cloudprovider::sqlite
