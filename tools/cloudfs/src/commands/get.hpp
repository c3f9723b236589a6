// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `get` was asked for.
struct GetRequest {
    std::string path;
    /// A local file or folder, or "-" for standard output.
    std::string local;
    bool isRecursive = false;
};

/// Copy a file of the store to a local one, or to standard output; a whole folder, too, if the request is recursive.
/// Nothing is written outside request.local, and a local file appears complete or not at all. Errors: see main.cpp.
void get(const Session& session, const GetRequest& request);

}  // namespace cloudfs::commands
