// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace cloudfs::commands {

/// What `get` was asked for.
struct GetRequest {
    /// Files and folders of the store, or patterns of them; what they go to is the last one of several, else ".": a
    /// local file or folder, or "-" for standard output.
    std::vector<std::string> operands;
    bool isRecursive = false;
    bool isDryRun = false;
    std::size_t transfers = 1;
};

/// Copy files of the store to local ones, or to standard output; whole folders, too, if the request is recursive.
/// Nothing is written outside the local operand, and a local file appears complete or not at all. What fails does not
/// keep the rest from being copied. Errors: see main.cpp.
void get(const Session& session, const GetRequest& request);

}  // namespace cloudfs::commands
