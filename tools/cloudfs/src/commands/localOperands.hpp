// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "local/LocalStoreFiles.hpp"
#include "store/Session.hpp"

#include <cstdint>
#include <string>

namespace cloudfs {

class LocalSource;
class ProgressBar;
class StoreFileWriter;

}  // namespace cloudfs

/// What the local paths that a command was given mean.
namespace cloudfs::commands {

/// The local files that the store consists of; a bucket has none.
LocalStoreFiles filesOf(const Session& session);

/// Refuse a local file that the store consists of, as what is read; standard input is fine. Errors: Failure.
void failIfStore(const Session& session, const std::string& local);

/// Write the rest of source. Result: the bytes written. Errors: Failure, OperationInterrupted.
std::uint64_t writeRest(LocalSource& source, StoreFileWriter& writer, ProgressBar& progress);

}  // namespace cloudfs::commands
