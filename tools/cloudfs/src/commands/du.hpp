// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"
#include "terminal/formatting.hpp"

#include <string>

namespace cloudfs::commands {

/// What `du` was asked for.
struct DuRequest {
    std::string path = "/";
    SizeStyle sizeStyle = SizeStyle::Bytes;
    bool isJson = false;
};

/// Write how many bytes and files each folder directly below a folder holds, then the folder itself; or those of one
/// file. Errors: see main.cpp.
void du(const Session& session, const DuRequest& request);

}  // namespace cloudfs::commands
