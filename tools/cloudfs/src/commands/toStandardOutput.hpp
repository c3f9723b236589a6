// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"
#include "store/readStoreFile.hpp"

#include <foundation/storage/provider/IProvider.hpp>

namespace cloudfs::commands {

/// Write a file of the store, or what it has of a range, to standard output.
///
/// Errors   Failure, Exception, OutputClosed, OperationInterrupted.
void writeToOutput(const foundation::storage::provider::IProvider& provider, const StorePath& path,
                   const ByteRange& range = {});

}  // namespace cloudfs::commands
