// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>
#include <vector>

namespace cloudfs::commands {

/// What `rm` was asked for.
struct RmRequest {
    /// Files and folders of the store, or patterns of them.
    std::vector<std::string> paths;
    bool isRecursive = false;
    bool isForced = false;  ///< what is missing is fine, and nothing is asked
    bool isDryRun = false;
};

/// Remove files; folders with all they hold, too, if the request is recursive. What fails does not keep the rest from
/// being removed. Everything is removed only by force, or when the user says so at a terminal. Errors: see main.cpp.
void rm(const Session& session, const RmRequest& request);

}  // namespace cloudfs::commands
