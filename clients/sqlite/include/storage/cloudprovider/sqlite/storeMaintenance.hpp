// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/sqlite/SqliteClient.hpp>
#include <storage/cloudprovider/sqlite/export.hpp>

#include <string>

namespace storage::cloudprovider {

/// Convert a store of an older format to the present one, in one transaction: it is done as a whole, or nothing is
/// changed. The bytes of objects stay where they are, but all of them are read. Objects keep their versions, and
/// uploads go on. What is damaged in the store stays so, as far as that can be told.
///
/// A program that knows only the older format, and has the store open meanwhile, finds no objects in it any more: its
/// operations fail, and change nothing.
///
/// Values   file: an existing one, as for SqliteClient.
/// Result   false when the store has the present format already; then nothing happens.
/// Errors   as SqliteClient. ResourceInUseException when others are writing for longer than the options allow.
/// Threads  any.
CLOUDPROVIDER_SQLITE_EXPORT bool upgradeSqliteStore(const std::string& file, const SqliteOptions& options = {});

}  // namespace storage::cloudprovider
