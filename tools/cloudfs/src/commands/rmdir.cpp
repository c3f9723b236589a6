// SPDX-License-Identifier: Apache-2.0
#include "commands/rmdir.hpp"

#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "terminal/failures.hpp"

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;

void rmdir(const Session& session, const RmdirRequest& request) {
    const StorePath path(request.path);
    const auto provider = session.open(MissingStore::Refuse);
    if (!provider->folderExists(path.iri()) && isFile(*provider, path)) {
        throw Failure(ErrorCode::InvalidLocation, path.text(), "is a file");
    }
    provider->removeFolder(path.iri());
}

}  // namespace cloudfs::commands
