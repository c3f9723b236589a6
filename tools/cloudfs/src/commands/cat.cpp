// SPDX-License-Identifier: Apache-2.0
#include "commands/cat.hpp"

#include "commands/toStandardOutput.hpp"
#include "store/StorePath.hpp"
#include "store/patterns.hpp"

namespace cloudfs::commands {

void cat(const Session& session, const CatRequest& request) {
    const auto paths = toPaths(request.paths);
    const auto provider = session.open(MissingStore::Refuse);
    for (const auto& path : expandPatterns(*provider, paths)) {
        writeToOutput(*provider, path, request.range);
    }
}

}  // namespace cloudfs::commands
