// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "local/LocalTree.hpp"
#include "store/Session.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace cloudfs::commands {

/// What `put` was asked for.
struct PutRequest {
    /// Local files and folders, or "-" for standard input, and last the path in the store.
    std::vector<std::string> operands;
    bool isRecursive = false;
    bool isDryRun = false;
    Links links = Links::Skip;
    std::size_t transfers = 1;
};

/// Copy local files, or standard input, into the store; whole folders, too, if the request is recursive. What fails
/// does not keep the rest from being copied. Errors: see main.cpp.
void put(const Session& session, const PutRequest& request);

}  // namespace cloudfs::commands
