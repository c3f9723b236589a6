// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `mv` was asked for.
struct MvRequest {
    std::string source;
    std::string destination;
    bool mayReplace = false;
};

/// Move a file, into the destination if that is a folder. Errors: see main.cpp.
void mv(const Session& session, const MvRequest& request);

}  // namespace cloudfs::commands
