// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "local/LocalTree.hpp"
#include "store/Session.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace cloudfs::commands {

/// What `sync` was asked for.
struct SyncRequest {
    /// One is a local folder, the other "store:" and a path of the store.
    std::string from;
    std::string to;
    std::vector<std::string> excluded;  ///< patterns of names
    bool deletes = false;               ///< what is only at the destination is removed
    bool comparesBytes = false;         ///< else size and time tell what has changed
    bool isForced = false;              ///< an empty source may remove everything
    bool isDryRun = false;
    Links links = Links::Skip;
    std::size_t transfers = 1;
};

/// Make a folder hold what another one holds, and transfer only what has changed: what differs in size, or was stored
/// before the source changed last. What fails does not keep the rest from being transferred, but from being removed.
/// Errors: see main.cpp.
void sync(const Session& session, const SyncRequest& request);

}  // namespace cloudfs::commands
