// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ctime>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace cloudfs {

class LocalStoreFiles;

/// A file or folder below a local folder, as it was when it was seen.
struct LocalEntry {
    std::string path;
    /// Relative to the folder, "/" between components.
    std::string name;
    bool isFolder = false;
    /// In bytes; 0 for a folder.
    std::uint64_t size = 0;
    /// When the content was changed last.
    std::timespec time{};
};

/// What to do about symbolic links below a folder: leave them out, which standard error tells; take what they lead to;
/// or take them for failures.
enum class Links { Skip, Follow, Fail };

/// Whether the path leads to a folder, following links. Errors: Failure when there is nothing.
bool isLocalFolder(const std::string& path);

/// What a listing of a local folder is to have.
struct ScanOptions {
    Links links = Links::Skip;
    /// Tells whether an entry, by its name, is none of the listing's; empty: all are. A folder goes with what it holds.
    std::function<bool(const std::string& name)> isExcluded{};
    /// Is given what keeps an entry from being listed, a Failure: it cannot be read, is neither file nor folder, has a
    /// name that is not valid UTF-8, or is a link back to a folder above it. The others are listed.
    std::function<void(std::exception_ptr)> onFailure;
};

struct LocalScan {
    std::vector<LocalEntry> entries;   ///< folders before what they hold, names in byte order
    std::vector<std::string> leftOut;  ///< names of links and of the store's files, which are not listed
};

/// List everything below a local folder. The files of the store are left out, which standard error tells. path itself
/// may be a link.
///
/// Errors   Failure when path itself cannot be read; OperationInterrupted.
LocalScan scanLocalFolder(const std::string& path, const LocalStoreFiles& storeFiles, const ScanOptions& options);

}  // namespace cloudfs
