// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <chrono>

namespace storage::cloudprovider::sqlite {

/// Make sure that the database is a store, in write-ahead mode: an empty one becomes a store, whoever else
/// does the same at that moment; anything that is not a store is refused and left as it is.
///
/// Errors   StoreFailure: another program's database, or a newer store. SQLite::Exception.
void openSchema(Connection& connection, std::chrono::milliseconds busyTimeout);

}  // namespace storage::cloudprovider::sqlite
