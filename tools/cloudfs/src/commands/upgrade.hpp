// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

namespace cloudfs::commands {

/// What `upgrade` was asked for: it has no operands.
struct UpgradeRequest {};

/// Convert an embedded store of an older format, and say what was done. Errors: see main.cpp.
void upgrade(const Session& session, const UpgradeRequest& request);

}  // namespace cloudfs::commands
