// SPDX-License-Identifier: Apache-2.0
#include "commands/entryText.hpp"

#include <boost/optional/optional.hpp>

namespace cloudfs::commands {

using foundation::storage::provider::FolderEntry;

namespace {

const auto& modificationOf(const FolderEntry& entry) {
    return entry.isFile() ? entry.getFileAttributes().getLastModified() : entry.getFolderAttributes().getLastModified();
}

}  // namespace

std::string sizeText(const FolderEntry& entry, SizeStyle style) {
    if (entry.isFolder() || !entry.getFileAttributes().getSize()) {
        return "-";
    }
    return formatSize(*entry.getFileAttributes().getSize(), style);
}

std::string timeText(const FolderEntry& entry) {
    return formatTime(modificationOf(entry));
}

void addEntry(JsonList& list, std::string_view label, const std::string& name, const FolderEntry& entry) {
    JsonList::Value size;
    if (entry.isFile() && entry.getFileAttributes().getSize()) {
        size = *entry.getFileAttributes().getSize();
    }
    JsonList::Value time;
    if (!modificationOf(entry).is_special()) {
        time = timeText(entry);
    }
    list.add({{label, name}, {"kind", entry.isFile() ? "file" : "folder"}, {"size", size}, {"time", time}});
}

}  // namespace cloudfs::commands
