// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs {

/// What `ls` was asked for.
struct ListRequest {
    std::string path = "/";
    bool isLong = false;
    bool isRecursive = false;
    bool onlyFiles = false;
    bool onlyFolders = false;
};

/// Write one line for each entry of a folder, or one for a file. Errors: see main.cpp.
void list(const Session& session, const ListRequest& request);

/// Write kind, size and time of a file or folder. Errors: see main.cpp.
void showStatus(const Session& session, const std::string& path);

}  // namespace cloudfs
