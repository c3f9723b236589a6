// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace soak {

/// One stretch of work of one process, from making its clients and providers to letting them go.
struct Lap {
    std::string store;         ///< the store's file
    std::string sharedFolder;  ///< where SharedFiles::begin was called, as the beginning of keys
    std::string ownFolder;     ///< likewise, of this process alone
    std::uint64_t seed = 1;
    std::chrono::milliseconds duration{0};
    /// Called some times a second. Throwing from it ends the lap, and is thrown on.
    std::function<void()> onTick = [] {};
};

/// What a lap has done.
struct LapCounts {
    std::uint64_t operations = 0;
    std::uint64_t faults = 0;  ///< injected and met
};

/// Work on a store with several threads, until the time is over or something is found: files of each thread's own, one
/// file in regions, files shared with other processes, and streams beside a model of them, through providers whose
/// options the seed decides, while calls fail. Throws Finding, and what was thrown unexpectedly, of the first thread
/// that met it; ends the process when nothing moves any more.
LapCounts run(const Lap& lap);

}  // namespace soak
