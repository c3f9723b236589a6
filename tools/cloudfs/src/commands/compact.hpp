// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

namespace cloudfs::commands {

/// What `compact` was asked for: it has no operands.
struct CompactRequest {};

/// Give the room of what was removed from an embedded store back to the disk, and say how much. Errors: see main.cpp.
void compact(const Session& session, const CompactRequest& request);

}  // namespace cloudfs::commands
