// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// The checksums that are stored beside rows and bytes, XXH3 of 64 bits; docs/limits-and-formats.md tells them to the
/// byte. Threads: any.
namespace storage::cloudprovider::sqlite {

/// The seed of a row's checksum, so that no row passes for one of another table. The numbers are stored.
enum class Table : std::uint64_t { Objects = 1, Slices = 2, Parts = 3, Uploads = 4, SentParts = 5, Numbers = 6 };

/// Puts the values of a row together for its checksum.
class RowImage {
public:
    /// 8 bytes, the lowest first.
    void add(std::int64_t value);

    /// The length as a number, then the bytes.
    void add(std::string_view bytes);

    std::int64_t sum(Table table) const;

private:
    std::string m_bytes;
};

/// The checksum of a row with these values, numbers as std::int64_t, the rest as bytes.
template <class... Values>
std::int64_t sumRow(Table table, const Values&... values) {
    RowImage image;
    (image.add(values), ...);
    return image.sum(table);
}

/// The checksum of a chunk's bytes, which tells its number, too.
std::int64_t sumChunk(std::int64_t chunk, std::string_view bytes);

/// The checksum of a key, by which the row before it names it.
std::int64_t sumKey(std::string_view key);

}  // namespace storage::cloudprovider::sqlite
