// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <cstdint>
#include <string>

namespace cloudfs {

/// Copy a local file, or standard input for "-", into the store; with isRecursive a whole folder, too.
/// Errors, for all functions here: see main.cpp.
void put(const Session& session, const std::string& local, const std::string& path, bool isRecursive);

/// Add a local file's bytes at the end of a file of the store, which is made if absent. Begins again, as writeAt does,
/// when the file is in use; see RepeatedEdit.
void append(const Session& session, const std::string& local, const std::string& path);

/// Overwrite an existing file's bytes from offset on with a local file's; the rest stays.
void writeAt(const Session& session, std::int64_t offset, const std::string& local, const std::string& path);

}  // namespace cloudfs
