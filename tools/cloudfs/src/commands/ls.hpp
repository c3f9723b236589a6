// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"
#include "terminal/formatting.hpp"

#include <string>

namespace cloudfs::commands {

/// What `ls` was asked for.
struct LsRequest {
    /// A pattern lists what fits it, not what is in it.
    std::string path = "/";
    bool isLong = false;
    bool isRecursive = false;
    bool onlyFiles = false;
    bool onlyFolders = false;
    SizeStyle sizeStyle = SizeStyle::Bytes;
    bool isJson = false;
};

/// Write one line for each entry of a folder, or one for a file; or all of it as one JSON document. Errors: see
/// main.cpp.
void ls(const Session& session, const LsRequest& request);

}  // namespace cloudfs::commands
