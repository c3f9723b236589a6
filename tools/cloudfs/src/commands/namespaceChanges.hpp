// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <foundation/storage/provider/ReplacementPolicy.hpp>

#include <string>

namespace cloudfs {

using foundation::storage::provider::ReplacementPolicy;

/// Create an empty file. Errors, for all functions here: see main.cpp.
void touch(const Session& session, const std::string& path);

/// Create a folder; with parents those above it, too, and an existing one is fine.
void makeFolder(const Session& session, const std::string& path, bool parents);

/// Remove a file; with isRecursive a folder with all it holds, too.
void remove(const Session& session, const std::string& path, bool isRecursive);

/// Remove an empty folder.
void removeFolder(const Session& session, const std::string& path);

/// Move or copy a file, into the destination if that is a folder.
void move(const Session& session, const std::string& source, const std::string& destination, ReplacementPolicy policy);
void copy(const Session& session, const std::string& source, const std::string& destination, ReplacementPolicy policy);

}  // namespace cloudfs
