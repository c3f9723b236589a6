// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>

namespace cloudfs {

/// Write a file of the store to standard output. Errors, for all functions here: see main.cpp.
void cat(const Session& session, const std::string& path);

/// Copy a file of the store to a local one, or to standard output for "-"; with isRecursive a whole folder,
/// too. Nothing is written outside local, and a local file appears complete or not at all.
void get(const Session& session, const std::string& path, const std::string& local, bool isRecursive);

}  // namespace cloudfs
