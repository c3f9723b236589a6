// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `cat` was asked for.
struct CatRequest {
    std::string path;
};

/// Write a file of the store to standard output. Errors: see main.cpp.
void cat(const Session& session, const CatRequest& request);

}  // namespace cloudfs::commands
