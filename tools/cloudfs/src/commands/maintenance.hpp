// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs {

/// Read a file, all files below a folder, or the whole of an embedded store, and list what is damaged. Errors: see
/// main.cpp; a Failure when something is.
void verify(const Session& session, const std::string& path);

/// Give the room of what was removed from an embedded store back to the disk, and say how much. Errors: see main.cpp.
void compact(const Session& session);

/// Convert an embedded store of an older format, and say what was done. Errors: see main.cpp.
void upgrade(const Session& session);

}  // namespace cloudfs
