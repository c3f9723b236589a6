// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/sqlite/SqliteClient.hpp>
#include <storage/cloudprovider/sqlite/export.hpp>

#include <cstdint>
#include <functional>
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

/// Whom verifySqliteStore tells how it gets on. Functions may be empty; what they throw ends it, and passes through.
struct VerificationObserver {
    /// Told of bytes that were read, a chunk at most at a time.
    std::function<void(std::uint64_t bytes)> OnBytes;
    /// Told what is damaged: the object's key, empty for what belongs to no single object, and the cause.
    std::function<void(const std::string& key, const std::string& cause)> OnDamage;
};

/// What verifySqliteStore read and found.
struct VerificationResult {
    std::uint64_t Objects = 0;  ///< how many objects were looked at, damaged or not
    std::uint64_t Damages = 0;  ///< how often OnDamage was told
};

/// Read all bytes of a store and compare all checksums, without changing anything. What is damaged is reported to the
/// observer, and the rest is read nevertheless. Each object is read in a transaction of its own, so others may work
/// meanwhile, and an object may be new or gone by the time it is reached.
///
/// Values   file: an existing one, as for SqliteClient. key: empty for the whole store, with the uploads under way and
///          the tables; else for the object of that key, and those whose keys begin with it and a "/".
/// Result   no damages: everything was as it was written. No objects: there are none.
/// Errors   as SqliteClient: for a store that cannot be opened or is busy, not for what is damaged in it.
/// Threads  any; observer is told on the caller's.
CLOUDPROVIDER_SQLITE_EXPORT VerificationResult verifySqliteStore(const std::string& file, const std::string& key,
                                                                 const VerificationObserver& observer,
                                                                 const SqliteOptions& options = {});

/// Give the room of what was removed back to the disk, in small transactions, so that others may work meanwhile. A
/// store that was converted from an older format is rewritten as a whole the first time, which needs free room for as
/// much as it holds.
///
/// Values   file: an existing one, as for SqliteClient. onBytes: told of bytes that go; may be empty, and what it
///          throws ends it, and is thrown on.
/// Result   by how many bytes the file is shorter; it becomes so when nobody reads what was there before.
/// Errors   as SqliteClient. PermissionDeniedException when the store cannot be written. ResourceInUseException when
///          others are writing for longer than the options allow. What was given back until then is.
/// Threads  any.
CLOUDPROVIDER_SQLITE_EXPORT std::uint64_t compactSqliteStore(const std::string& file,
                                                             const std::function<void(std::uint64_t bytes)>& onBytes,
                                                             const SqliteOptions& options = {});

}  // namespace storage::cloudprovider
