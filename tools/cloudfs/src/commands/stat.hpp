// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `stat` was asked for.
struct StatRequest {
    std::string path;
    bool isJson = false;
};

/// Write kind, size and time of a file or folder, as lines or as a JSON document. Errors: see main.cpp.
void stat(const Session& session, const StatRequest& request);

}  // namespace cloudfs::commands
