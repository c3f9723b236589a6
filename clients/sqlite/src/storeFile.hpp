// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace storage::cloudprovider::sqlite {

/// A path as SQLite reads it: names that mean something else to it get a "./" in front (sqlite.org/uri.html).
///
/// Errors   InvalidLocationException for what is no path.
std::string toDatabaseName(const std::string& file);

}  // namespace storage::cloudprovider::sqlite
