// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/FolderEntry.hpp>

#include <string>

namespace cloudfs::commands {

/// The size of a file in bytes, and when a file or folder was changed, as `ls` and `stat` show them; "-" when unknown.
std::string sizeText(const foundation::storage::provider::FolderEntry& entry);
std::string timeText(const foundation::storage::provider::FolderEntry& entry);

}  // namespace cloudfs::commands
