// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <chrono>
#include <memory>
#include <string>

namespace storage::cloudprovider::sqlite {

/// A path as SQLite reads it: names that mean something else to it get a "./" in front (sqlite.org/uri.html).
///
/// Errors   InvalidLocationException for what is no path.
std::string toDatabaseName(const std::string& file);

/// Open a store of the present format; for reading only, when it cannot be changed.
///
/// Values   mayCreate: make one when the file is missing or empty.
/// Errors   as openSchema. SQLITE_PERM when the file cannot be read, or not safely.
std::unique_ptr<Connection> openStore(const std::string& name, bool mayCreate, std::chrono::milliseconds busyTimeout);

}  // namespace storage::cloudprovider::sqlite
