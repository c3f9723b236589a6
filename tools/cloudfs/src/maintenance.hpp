// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Session.hpp"

namespace cloudfs {

/// Convert an embedded store of an older format, and say what was done. Errors: see main.cpp.
void upgrade(const Session& session);

}  // namespace cloudfs
