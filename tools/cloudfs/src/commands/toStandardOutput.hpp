// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>

namespace cloudfs::commands {

/// Write a file of the store to standard output. Errors: Failure, Exception, OutputClosed, OperationInterrupted.
void writeToOutput(const foundation::storage::provider::IProvider& provider, const StorePath& path);

}  // namespace cloudfs::commands
