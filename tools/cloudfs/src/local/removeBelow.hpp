// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>

/// Removes what is below a local folder, by a name with "/" between its components, without following a symbolic link
/// there: what lies behind one is not below the folder. What has gone is fine. Errors, for both: Failure.
namespace cloudfs {

/// Remove a file, if it is what isMeant says.
void removeFileBelow(const std::string& folder, const std::string& name,
                     const std::function<bool(const struct stat& status)>& isMeant);

/// Remove a folder, if it is empty.
void removeFolderBelow(const std::string& folder, const std::string& name);

}  // namespace cloudfs
