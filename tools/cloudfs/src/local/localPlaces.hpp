// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// Where what comes from the store goes on this machine.
namespace cloudfs {

/// Whether there is something, following links. No error: what cannot be seen is not there.
bool isThere(const std::string& path);

/// The path of a file or folder of that name that goes to local: into it if it is a folder, else local itself.
std::string localPlaceFor(const std::string& local, const std::string& name);

/// Why a path relative to a folder, with "/" between components, cannot be a local one; null when it can. Keys are free
/// text: one with ".." would lead out of the folder.
const char* whyNotLocal(const std::string& name);

/// Make a folder unless it is there. A link in its place is refused: what lies behind it is not below the folder we
/// were given. Errors: Failure.
void makeLocalFolder(const std::string& path);

}  // namespace cloudfs
