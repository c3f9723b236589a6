// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <cstdint>
#include <string>

namespace storage::cloudprovider {

/// How much the parts may hold that writing adds to a file.
///
/// In a store that takes few parts they become larger with their index, so that the largest object fits: the size
/// doubles each time that 9 % of the parts are used up. Elsewhere they are all of one size. A value.
class PartSizes {
public:
    /// Values   partSize: of the first parts, in bytes, not 0; what the store does not take is made to fit. firstIndex:
    ///          of the first part that writing may add.
    PartSizes(std::uint64_t partSize, const StoreLimits& limits, std::uint64_t firstIndex = 0);

    std::uint64_t firstIndex() const noexcept { return m_firstIndex; }

    /// What the last part of a stored file, which has that size and begins at offset, may grow to, in bytes.
    std::uint64_t grownCapacityOf(std::uint64_t size, std::uint64_t offset) const;

    /// UnsupportedOperationException, naming the file, when the store takes no object of so many bytes.
    void checkFileSize(std::uint64_t size, const std::string& key) const;

    /// Room of the part of that index that begins at offset, in bytes.
    ///
    /// Errors   UnsupportedOperationException, naming the file, when the store takes no such part.
    std::uint64_t capacityOf(std::uint64_t index, std::uint64_t offset, const std::string& key) const;

    /// Index of the part that holds the byte so far after the beginning of the part of index from.
    std::uint64_t indexBehind(std::uint64_t from, std::uint64_t distance) const;

private:
    std::uint64_t sizeOf(std::uint64_t index) const;

    std::uint64_t m_largestSize;
    std::uint64_t m_firstSize;
    std::uint64_t m_mostParts;
    std::uint64_t m_mostBytes;
    std::uint64_t m_firstIndex;
    std::uint64_t m_partsOfOneSize;  // parts of one size that follow each other
};

}  // namespace storage::cloudprovider
