// SPDX-License-Identifier: Apache-2.0
#include "commands/cp.hpp"

#include "commands/transfer.hpp"

namespace cloudfs::commands {

void cp(const Session& session, const CpRequest& request) {
    transfer(session, {request.operands, request.mayReplace, request.isRecursive}, Source::Kept, "cp");
}

}  // namespace cloudfs::commands
