// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>

#include <string>

namespace cloudfs {

class ProgressBar;

}  // namespace cloudfs

namespace cloudfs::commands {

/// Whether a file of the store has the bytes of a local one. Errors: Failure, Exception, OperationInterrupted.
bool haveSameBytes(const foundation::storage::provider::IProvider& provider, const StorePath& path,
                   const std::string& local, ProgressBar& progress);

}  // namespace cloudfs::commands
