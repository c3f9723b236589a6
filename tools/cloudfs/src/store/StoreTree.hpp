// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace cloudfs {

/// A file or folder below a folder of the store, as it was when it was listed.
struct StoreEntry {
    /// Relative to the folder.
    std::string name;
    bool isFolder = false;
    /// In bytes; 0 for a folder, and where nobody knows.
    std::uint64_t size = 0;
    /// UTC; not_a_date_time for a folder, and where nobody knows.
    boost::posix_time::ptime time;
};

/// List everything below a folder of the store; nothing in an empty store. Errors: Exception, OperationInterrupted.
std::vector<StoreEntry> listStoreTree(const foundation::storage::provider::IProvider& provider,
                                      const StorePath& folder);

}  // namespace cloudfs
