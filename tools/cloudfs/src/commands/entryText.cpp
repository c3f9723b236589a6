// SPDX-License-Identifier: Apache-2.0
#include "commands/entryText.hpp"

#include "terminal/formatting.hpp"

namespace cloudfs::commands {

using foundation::storage::provider::FolderEntry;

std::string sizeText(const FolderEntry& entry) {
    if (entry.isFolder() || !entry.getFileAttributes().getSize()) {
        return "-";
    }
    return std::to_string(*entry.getFileAttributes().getSize());
}

std::string timeText(const FolderEntry& entry) {
    return formatTime(entry.isFile() ? entry.getFileAttributes().getLastModified()
                                     : entry.getFolderAttributes().getLastModified());
}

}  // namespace cloudfs::commands
