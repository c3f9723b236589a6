// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace soak {

/// What this process holds of the machine.
struct Footprint {
    /// How much the memory may grow from one lap to any later one, in bytes: what the allocator keeps differs.
    /// Sanitizers keep some more for every thread that there ever was.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    static constexpr std::uint64_t kMostGrowth = std::uint64_t{2} << 30;
#else
    static constexpr std::uint64_t kMostGrowth = std::uint64_t{48} << 20;
#endif

    std::size_t descriptors = 0;
    std::size_t threads = 0;
    std::uint64_t residentBytes = 0;

    /// As it is now, when the allocator has given back what it can. Throws boost::filesystem::filesystem_error.
    static Footprint measure();
};

/// Files below a folder, at any depth.
std::size_t countFiles(const std::string& folder);

}  // namespace soak
