// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `touch` was asked for.
struct TouchRequest {
    std::string path;
};

/// Create an empty file. Errors: see main.cpp.
void touch(const Session& session, const TouchRequest& request);

}  // namespace cloudfs::commands
