// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>

namespace storage::cloudprovider {

/// How many bytes fit between a position and the largest one.
constexpr std::uint64_t remainingAfter(std::uint64_t position) noexcept {
    return std::numeric_limits<std::uint64_t>::max() - position;
}

/// The sum, or the largest value where the sum would not fit.
constexpr std::uint64_t saturatingAdd(std::uint64_t left, std::uint64_t right) noexcept {
    return right > remainingAfter(left) ? std::numeric_limits<std::uint64_t>::max() : left + right;
}

}  // namespace storage::cloudprovider
