// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `cp` was asked for.
struct CpRequest {
    std::string source;
    std::string destination;
    bool mayReplace = false;
    bool isRecursive = false;
};

/// Copy a file or, if the request is recursive, a folder, into the destination if that is a folder. Errors: see
/// main.cpp.
void cp(const Session& session, const CpRequest& request);

}  // namespace cloudfs::commands
