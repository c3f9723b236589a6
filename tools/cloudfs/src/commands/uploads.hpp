// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs {

/// What `uploads` was asked for.
struct UploadsRequest {
    std::string path = "/";
    bool isAborting = false;
    std::string olderThan;  ///< such as "1d"; empty: any age
};

/// List the unfinished uploads of a file, or of all files below a folder, or end them. Errors: see main.cpp.
void showUploads(const Session& session, const UploadsRequest& request);

}  // namespace cloudfs
