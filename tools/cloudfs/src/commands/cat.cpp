// SPDX-License-Identifier: Apache-2.0
#include "commands/cat.hpp"

#include "commands/toStandardOutput.hpp"
#include "store/StorePath.hpp"

namespace cloudfs::commands {

void cat(const Session& session, const CatRequest& request) {
    const StorePath path(request.path);
    writeToOutput(*session.open(MissingStore::Refuse), path);
}

}  // namespace cloudfs::commands
