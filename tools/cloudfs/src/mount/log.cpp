// SPDX-License-Identifier: Apache-2.0
#include "mount/log.hpp"

#include "terminal/escapeText.hpp"

#include <iostream>

namespace cloudfs::mount {

void logLine(const std::string& text) noexcept {
    try {
        std::cerr << escapeText(text) + '\n' << std::flush;
    } catch (...) {  // NOLINT(bugprone-empty-catch): there is nowhere to tell it
    }
}

void logFailure(const StorePath& path, const std::exception& failure) noexcept {
    try {
        logLine(path.text() + ": " + failure.what());
    } catch (...) {  // NOLINT(bugprone-empty-catch): there is nowhere to tell it
    }
}

}  // namespace cloudfs::mount
