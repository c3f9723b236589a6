// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>
#include <vector>

namespace cloudfs::commands {

/// What `cp` was asked for.
struct CpRequest {
    /// Files and folders of the store, or patterns of them, and last where they go.
    std::vector<std::string> operands;
    bool mayReplace = false;
    bool isRecursive = false;
};

/// Copy a file or, if the request is recursive, a folder, into the destination if that is a folder. Errors: see
/// main.cpp.
void cp(const Session& session, const CpRequest& request);

}  // namespace cloudfs::commands
