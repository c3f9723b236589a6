// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"
#include "store/StorePath.hpp"

#include <foundation/storage/provider/ReplacementPolicy.hpp>

namespace cloudfs::commands {

/// A file to move or copy, where to, and whether it may replace one there.
struct TransferRequest {
    StorePath from;
    StorePath to;
    bool mayReplace = false;
};

/// IProvider's moveFile or copyFile.
using TransferOperation = void (IProvider::*)(const foundation::storage::provider::StorageIRI& source,
                                              const foundation::storage::provider::StorageIRI& destination,
                                              const foundation::storage::provider::ReplacementPolicy& policy) const;

/// Move or copy a file, into the destination if that is a folder. Errors: see main.cpp; a Failure with refusalOfFolders
/// when the source is a folder.
void transfer(const Session& session, const TransferRequest& request, const char* refusalOfFolders,
              TransferOperation operation);

}  // namespace cloudfs::commands
