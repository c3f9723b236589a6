// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>
#include <vector>

namespace cloudfs::commands {

/// What `stat` was asked for.
struct StatRequest {
    /// Files and folders of the store, or patterns of them.
    std::vector<std::string> paths;
    bool isJson = false;
};

/// Write kind, size and time of files and folders, as lines or as a JSON document. Errors: see main.cpp.
void stat(const Session& session, const StatRequest& request);

}  // namespace cloudfs::commands
