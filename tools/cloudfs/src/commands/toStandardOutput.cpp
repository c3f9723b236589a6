// SPDX-License-Identifier: Apache-2.0
#include "commands/toStandardOutput.hpp"

#include "store/operands.hpp"
#include "store/readStoreFile.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/waitingIo.hpp"

#include <unistd.h>

namespace cloudfs::commands {

namespace {

ProgressBar::Visibility visibilityBesideOutput() {
    return ::isatty(STDOUT_FILENO) == 1 ? ProgressBar::Visibility::Never : ProgressBar::Visibility::WhenTerminal;
}

}  // namespace

void writeToOutput(const IProvider& provider, const StorePath& path) {
    ProgressBar progress(sizeOf(provider, path), visibilityBesideOutput());
    readStoreFile(
        provider, path, [](std::string_view data) { writeAll(STDOUT_FILENO, "standard output", data); }, progress);
}

}  // namespace cloudfs::commands
