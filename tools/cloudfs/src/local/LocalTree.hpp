// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cloudfs {

class LocalStoreFiles;

/// A file or folder below a local folder.
struct LocalEntry {
    std::string path;
    /// Relative to the folder, "/" between components.
    std::string name;
    bool isFolder = false;
    /// In bytes; 0 for a folder.
    std::uint64_t size = 0;
};

/// Whether the path leads to a folder, following links. Errors: Failure when there is nothing.
bool isLocalFolder(const std::string& path);

/// List everything below a local folder, folders before what they hold, names in byte order. Links are
/// followed. The files of the store are left out, which standard error tells.
///
/// Errors   Failure: something cannot be read, is neither file nor folder, has a name that is not valid
/// UTF-8,
///          or is a link back to a folder above. OperationInterrupted.
std::vector<LocalEntry> scanLocalFolder(const std::string& path, const LocalStoreFiles& storeFiles);

}  // namespace cloudfs
