// SPDX-License-Identifier: Apache-2.0
#include "commands/touch.hpp"

#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "terminal/failures.hpp"

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;

void touch(const Session& session, const TouchRequest& request) {
    const StorePath path(request.path);
    failIfMeansFolder(path);
    const auto provider = session.open(MissingStore::Create);
    if (isFolder(*provider, path)) {
        throw Failure(ErrorCode::AlreadyExists, path.text(), "is a folder");
    }
    provider->createFile(path.iri());
}

}  // namespace cloudfs::commands
