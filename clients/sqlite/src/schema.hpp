// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <chrono>

namespace storage::cloudprovider::sqlite {

/// Make sure that the database is a store of the present format, in write-ahead mode: an empty one becomes a store,
/// whoever else does the same at that moment; anything that is not a store is refused and left as it is.
///
/// Errors   OutdatedStore: an older format. StoreFailure: another program's database, a newer store, or a damaged one.
///          SQLite::Exception.
void openSchema(Connection& connection, std::chrono::milliseconds busyTimeout);

/// The same without changing anything. Errors: as openSchema; StoreFailure also for an empty file.
void checkSchema(Connection& connection);

/// Convert a store of format 1 in one transaction. Whoever has it open as such fails from then on.
///
/// Result   false when it has the present format already.
/// Errors   as openSchema; then nothing is changed.
bool upgradeSchema(Connection& connection);

}  // namespace storage::cloudprovider::sqlite
