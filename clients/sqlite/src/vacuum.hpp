// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"
#include "DiskReserve.hpp"

#include <cstdint>
#include <functional>

/// Giving the room of what was removed back to the disk.
///
/// Errors   SQLite::Exception.
namespace storage::cloudprovider::sqlite {

/// Bytes that the store's file has, as far as it is known to the connection; some may be in the log yet.
std::int64_t getFileSize(Connection& connection);

/// Take the free pages off the file's end, in small transactions, and move the log after each. When the disk is full
/// they have the room of the reserve, which is made again at the end.
///
/// Values   onStep: told after each; what it throws ends it, and is thrown on.
void shrink(Connection& connection, const DiskReserve& reserve, const std::function<void()>& onStep);

/// Whether steps shrink the file at all. A store that was converted from format 1 has to be rewritten first.
bool canShrink(Connection& connection);

/// Rewrite the whole file, in one transaction, without its free pages.
void rewrite(Connection& connection);

/// Move the log into the file as far as readers let it, which makes both shorter. Waits for nobody.
void moveLog(Connection& connection);

}  // namespace storage::cloudprovider::sqlite
