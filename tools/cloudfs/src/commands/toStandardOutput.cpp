// SPDX-License-Identifier: Apache-2.0
#include "commands/toStandardOutput.hpp"

#include "store/operands.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/waitingIo.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <optional>

namespace cloudfs::commands {

namespace {

std::optional<std::uint64_t> sizeWithin(const ByteRange& range, std::optional<std::uint64_t> fileSize) {
    if (!fileSize) {
        return range.size;
    }
    const auto left = *fileSize - std::min(*fileSize, static_cast<std::uint64_t>(range.offset));
    return std::min(left, range.size.value_or(left));
}

ProgressBar::Visibility visibilityBesideOutput() {
    return ::isatty(STDOUT_FILENO) == 1 ? ProgressBar::Visibility::Never : ProgressBar::Visibility::WhenTerminal;
}

}  // namespace

void writeToOutput(const IProvider& provider, const StorePath& path, const ByteRange& range) {
    ProgressBar progress(sizeWithin(range, sizeOf(provider, path)), visibilityBesideOutput());
    readStoreFile(
        provider, path, [](std::string_view data) { writeAll(STDOUT_FILENO, "standard output", data); }, progress,
        range);
}

}  // namespace cloudfs::commands
