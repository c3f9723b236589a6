// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"
#include "store/readStoreFile.hpp"

#include <string>
#include <vector>

namespace cloudfs::commands {

/// What `cat` was asked for.
struct CatRequest {
    /// Files of the store, or patterns of them.
    std::vector<std::string> paths;
    ByteRange range;  ///< of each
};

/// Write files of the store, or that range of each, one after the other, to standard output. Errors: see main.cpp.
void cat(const Session& session, const CatRequest& request);

}  // namespace cloudfs::commands
