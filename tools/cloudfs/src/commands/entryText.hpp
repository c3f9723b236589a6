// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "terminal/JsonList.hpp"
#include "terminal/formatting.hpp"

#include <foundation/storage/provider/FolderEntry.hpp>

#include <string>

namespace cloudfs::commands {

/// The size of a file, and when a file or folder was changed, as `ls` and `stat` show them; "-" when unknown.
std::string sizeText(const foundation::storage::provider::FolderEntry& entry, SizeStyle style);
std::string timeText(const foundation::storage::provider::FolderEntry& entry);

/// Add what `ls` and `stat` tell of an entry; what is unknown is null. label: what its name is called.
void addEntry(JsonList& list, std::string_view label, const std::string& name,
              const foundation::storage::provider::FolderEntry& entry);

}  // namespace cloudfs::commands
