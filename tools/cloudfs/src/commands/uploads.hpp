// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <chrono>
#include <optional>
#include <string>

namespace cloudfs::commands {

/// What `uploads` was asked for.
struct UploadsRequest {
    std::string path = "/";
    bool isAborting = false;
    /// Only those that were begun so long ago; nothing: any.
    std::optional<std::chrono::seconds> olderThan;
};

/// List the unfinished uploads of a file, or of all files below a folder, or end them. Errors: see main.cpp.
void uploads(const Session& session, const UploadsRequest& request);

}  // namespace cloudfs::commands
