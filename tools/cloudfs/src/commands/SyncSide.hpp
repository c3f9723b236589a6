// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace cloudfs::commands {

class FileTransfers;

/// A file or folder on one side of a sync, as it was when it was listed.
struct SyncEntry {
    bool isFolder = false;
    std::uint64_t size = 0;
    std::int64_t time = 0;  ///< of the last change, in microseconds since 1970
};

/// The time of what nobody knows the time of: it counts as changed.
inline constexpr std::int64_t kUnknownTime = std::numeric_limits<std::int64_t>::max();

/// What is below the folder on one side.
struct SyncListing {
    std::map<std::string, SyncEntry> entries;  ///< by their names relative to it
    std::vector<std::string> leftOut;          ///< names of what is there and must not be touched
    std::vector<std::string> hidden;           ///< names of files that folders have, too
};

using ExcludedNames = std::function<bool(const std::string& name)>;

/// A folder that is compared with another one. remove and removeFolder: any thread.
class SyncSide {
public:
    SyncSide() = default;
    SyncSide(const SyncSide&) = delete;
    SyncSide& operator=(const SyncSide&) = delete;
    virtual ~SyncSide() = default;

    /// List what is not excluded; what cannot be listed is noted. Errors: Failure, Exception, OperationInterrupted.
    virtual SyncListing list(const ExcludedNames& isExcluded, FileTransfers& transfers) const = 0;

    /// Make the folder itself, and those below it, each of which comes after the one that it is in; those that are
    /// there are fine.
    ///
    /// Result   those that could not be made, which is noted; nothing may be put into them.
    /// Errors   OperationInterrupted.
    virtual std::vector<std::string> makeFolders(const std::vector<std::string>& names,
                                                 FileTransfers& transfers) const = 0;

    /// Remove a file that still is as it was listed; one that has gone is fine. Errors: Failure, Exception.
    virtual void remove(const std::string& name, const SyncEntry& listed) const = 0;

    /// Remove a folder that is empty; another one stays. Errors: Failure, Exception.
    virtual void removeFolder(const std::string& name) const = 0;

    /// The path of an entry, for people.
    virtual std::string textOf(const std::string& name) const = 0;
};

}  // namespace cloudfs::commands
