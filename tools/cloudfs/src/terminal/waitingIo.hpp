// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Reads and writes descriptors so that an interrupt ends the wait. path is for messages only.
namespace cloudfs {

/// Read up to count bytes; 0 at the end. Waits where it must. Errors: Failure, OperationInterrupted.
std::size_t readSome(int descriptor, const std::string& path, char* buffer, std::size_t count);

/// Write all of data. Waits where it must. Errors: Failure, OperationInterrupted, and OutputClosed when a
/// pipe has lost its reader.
void writeAll(int descriptor, const std::string& path, std::string_view data);

}  // namespace cloudfs
