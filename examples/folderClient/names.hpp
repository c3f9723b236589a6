// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

// How keys become names of files, and back. Threads: any.
namespace example {

/// Answer the path of a key's file below folder, however long it gets.
std::filesystem::path pathOf(const std::filesystem::path& folder, const std::string& key);

/// Whether a file of that name can be made: no component is too long.
bool isStorable(const std::filesystem::path& path);

/// A file's name on the disk, as the last component of a key.
struct Entry {
    std::string name;       ///< a folder's ends in "/"; a marker's is empty
    bool isFolder = false;  ///< by its name
    bool isOurs = false;    ///< else no key has that name
};

/// Read a file's name on the disk.
Entry entryOf(const std::string& fileName);

}  // namespace example
