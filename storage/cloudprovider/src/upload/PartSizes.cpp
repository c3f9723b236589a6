// SPDX-License-Identifier: Apache-2.0
#include "upload/PartSizes.hpp"

#include "support/host.hpp"
#include "support/saturatingAdd.hpp"
#include "support/tuning.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>
#include <limits>

namespace storage::cloudprovider {

namespace {

constexpr auto kUnlimited = std::numeric_limits<std::uint64_t>::max();

// Eleven sizes: for S3, 5 MiB to 5 GiB in steps of 900 parts, which is more than 5 TiB.
std::uint64_t choosePartsOfOneSize(const StoreLimits& limits, std::uint64_t firstIndex) {
    constexpr std::uint64_t kPercent = 9;
    if (limits.MostParts >= kMaxPartCount) {
        return kUnlimited;
    }
    const auto left = limits.MostParts - std::min(limits.MostParts, firstIndex);
    return std::max<std::uint64_t>(left * kPercent / 100, 1);
}

[[noreturn]] void throwTooLarge(const std::string& key, const std::string& limit) {
    throw UnsupportedOperationException(host::ExceptionContext(key + " would need more than " + limit));
}

}  // namespace

PartSizes::PartSizes(std::uint64_t partSize, const StoreLimits& limits, std::uint64_t firstIndex)
    : m_largestSize(std::min(limits.LargestPart, limits.LargestPut)),
      m_firstSize(std::min(std::max(partSize, limits.SmallestPart), m_largestSize)),
      m_mostParts(std::min(limits.MostParts, kMaxPartCount)),
      m_mostBytes(limits.LargestObject),
      m_firstIndex(firstIndex),
      m_partsOfOneSize(choosePartsOfOneSize(limits, firstIndex)) {}

std::uint64_t PartSizes::capacityOf(std::uint64_t index, std::uint64_t offset, const std::string& key) const {
    if (index >= m_mostParts) {
        throwTooLarge(key, std::to_string(m_mostParts) + " parts");
    }
    checkFileSize(saturatingAdd(offset, 1), key);
    return std::min({sizeOf(index), m_mostBytes - offset, remainingAfter(offset)});
}

std::uint64_t PartSizes::grownCapacityOf(std::uint64_t size, std::uint64_t offset) const {
    const auto left = m_mostBytes - std::min(offset, m_mostBytes);
    return std::max(size, std::min({m_firstSize, left, remainingAfter(offset)}));
}

void PartSizes::checkFileSize(std::uint64_t size, const std::string& key) const {
    if (size > m_mostBytes) {
        throwTooLarge(key, std::to_string(m_mostBytes) + " bytes");
    }
}

std::uint64_t PartSizes::indexBehind(std::uint64_t from, std::uint64_t distance) const {
    while (true) {
        const auto size = sizeOf(from);
        const auto used = (from - std::min(from, m_firstIndex)) % m_partsOfOneSize;
        const auto count = m_partsOfOneSize - used;
        if (size == m_largestSize || distance / size < count) {
            return from + distance / size;
        }
        distance -= count * size;
        from += count;
    }
}

// A part that was stored already and grows counts as one of the first size.
std::uint64_t PartSizes::sizeOf(std::uint64_t index) const {
    constexpr std::uint64_t kMostDoublings = 63;
    const auto doublings = (index - std::min(index, m_firstIndex)) / m_partsOfOneSize;
    if (doublings > kMostDoublings || m_firstSize > (m_largestSize >> doublings)) {
        return m_largestSize;
    }
    return m_firstSize << doublings;
}

}  // namespace storage::cloudprovider
