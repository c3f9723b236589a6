// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace cloudfs {

/// Let all temporary files of this process go to a folder, in place of the environment's. Before any thread.
///
/// Errors   Failure when it is no folder, or nothing can be written there.
void useTemporaryFolder(const std::string& folder);

}  // namespace cloudfs
