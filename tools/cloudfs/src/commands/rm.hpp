// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `rm` was asked for.
struct RmRequest {
    std::string path;
    bool isRecursive = false;
};

/// Remove a file; a folder with all it holds, too, if the request is recursive. Errors: see main.cpp.
void rm(const Session& session, const RmRequest& request);

}  // namespace cloudfs::commands
