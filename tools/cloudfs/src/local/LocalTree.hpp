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

/// List everything below a local folder, folders before what they hold, names in byte order. The files of the store are
/// left out, which standard error tells. path itself may be a link.
///
/// Values   onFailure: is given what keeps an entry from being listed, a Failure: it cannot be read, is neither file
/// nor
///          folder, has a name that is not valid UTF-8, or is a link back to a folder above it. The others are listed.
/// Errors   Failure when path itself cannot be read; OperationInterrupted.
std::vector<LocalEntry> scanLocalFolder(const std::string& path, const LocalStoreFiles& storeFiles, Links links,
                                        const std::function<void(std::exception_ptr)>& onFailure);

}  // namespace cloudfs
