// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `mkdir` was asked for.
struct MkdirRequest {
    std::string path;
    bool withParents = false;
};

/// Create a folder; with its parents those above it, too, and an existing one is fine. Errors: see main.cpp.
void mkdir(const Session& session, const MkdirRequest& request);

}  // namespace cloudfs::commands
