// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `put` was asked for.
struct PutRequest {
    /// A local file or folder, or "-" for standard input.
    std::string local;
    std::string path;
    bool isRecursive = false;
};

/// Copy a local file, or standard input, into the store; a whole folder, too, if the request is recursive. Errors: see
/// main.cpp.
void put(const Session& session, const PutRequest& request);

}  // namespace cloudfs::commands
