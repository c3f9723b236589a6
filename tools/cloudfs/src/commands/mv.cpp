// SPDX-License-Identifier: Apache-2.0
#include "commands/mv.hpp"

#include "commands/transfer.hpp"

namespace cloudfs::commands {

void mv(const Session& session, const MvRequest& request) {
    transfer(session,
             {StorePath(request.source), StorePath(request.destination), request.mayReplace, request.isRecursive},
             Source::Removed, "mv");
}

}  // namespace cloudfs::commands
