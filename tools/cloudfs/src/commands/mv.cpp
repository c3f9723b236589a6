// SPDX-License-Identifier: Apache-2.0
#include "commands/mv.hpp"

#include "commands/transfer.hpp"

namespace cloudfs::commands {

void mv(const Session& session, const MvRequest& request) {
    transfer(session, {request.operands, request.mayReplace, request.isRecursive}, Source::Removed, "mv");
}

}  // namespace cloudfs::commands
