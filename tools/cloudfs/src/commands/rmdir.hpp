// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `rmdir` was asked for.
struct RmdirRequest {
    std::string path;
};

/// Remove an empty folder. Errors: see main.cpp.
void rmdir(const Session& session, const RmdirRequest& request);

}  // namespace cloudfs::commands
