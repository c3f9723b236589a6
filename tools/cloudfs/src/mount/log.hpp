// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <exception>
#include <string>

namespace cloudfs::mount {

/// Write one line to standard error. Threads: any.
void logLine(const std::string& text) noexcept;

/// Write a line about a file whose failure no program is told at once.
void logFailure(const StorePath& path, const std::exception& failure) noexcept;

}  // namespace cloudfs::mount
