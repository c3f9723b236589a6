// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `append` was asked for.
struct AppendRequest {
    /// A local file, or "-" for standard input.
    std::string local;
    std::string path;
};

/// Add a local file's bytes at the end of a file of the store, which is made if absent. Begins again when the file is
/// in use; see RepeatedEdit. Errors: see main.cpp.
void append(const Session& session, const AppendRequest& request);

}  // namespace cloudfs::commands
