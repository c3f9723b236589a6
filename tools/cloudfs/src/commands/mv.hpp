// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>
#include <vector>

namespace cloudfs::commands {

/// What `mv` was asked for.
struct MvRequest {
    /// Files and folders of the store, or patterns of them, and last where they go.
    std::vector<std::string> operands;
    bool mayReplace = false;
    bool isRecursive = false;
};

/// Move a file or, if the request is recursive, a folder, into the destination if that is a folder. It is stored there
/// before it is removed: whatever ends it, each file is whole at one of its places or at both. Errors: see
/// main.cpp.
void mv(const Session& session, const MvRequest& request);

}  // namespace cloudfs::commands
