// SPDX-License-Identifier: Apache-2.0
#include "Footprint.hpp"

#include <boost/filesystem/operations.hpp>

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace soak {

namespace {

std::size_t countEntries(const char* folder) {
    return static_cast<std::size_t>(
        std::distance(boost::filesystem::directory_iterator(folder), boost::filesystem::directory_iterator()));
}

}  // namespace

Footprint Footprint::measure() {
    ::malloc_trim(0);
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;  // the second field
    Footprint footprint;
    footprint.descriptors = countEntries("/proc/self/fd") - 1;  // but for the one that counts
    footprint.threads = countEntries("/proc/self/task");
    footprint.residentBytes = pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    return footprint;
}

std::size_t countFiles(const std::string& folder) {
    const auto isFile = [](const boost::filesystem::directory_entry& entry) {
        return boost::filesystem::is_regular_file(entry.symlink_status());
    };
    return static_cast<std::size_t>(std::count_if(boost::filesystem::recursive_directory_iterator(folder),
                                                  boost::filesystem::recursive_directory_iterator(), isFile));
}

}  // namespace soak
