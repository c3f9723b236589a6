// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs::commands {

/// What `verify` was asked for.
struct VerifyRequest {
    std::string path = "/";
};

/// Read a file, all files below a folder, or the whole of an embedded store, and list what is damaged. Errors: see
/// main.cpp; a Failure when something is.
void verify(const Session& session, const VerifyRequest& request);

}  // namespace cloudfs::commands
