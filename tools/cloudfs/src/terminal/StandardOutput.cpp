// SPDX-License-Identifier: Apache-2.0
#include "terminal/StandardOutput.hpp"

#include "terminal/escapeText.hpp"
#include "terminal/waitingIo.hpp"

#include <unistd.h>

#include <utility>

namespace cloudfs {

namespace {

constexpr std::size_t kBufferSize = 65536;

}  // namespace

StandardOutput::StandardOutput() : m_isTerminal(::isatty(STDOUT_FILENO) == 1) {}

StandardOutput::~StandardOutput() {
    try {
        flush();
    } catch (...) {  // NOLINT(bugprone-empty-catch): another failure is on its way already
    }
}

void StandardOutput::write(std::string_view text) {
    m_buffer.append(text);
    if (m_buffer.size() >= kBufferSize) {
        flush();
    }
}

void StandardOutput::writeName(std::string_view name) {
    write(m_isTerminal ? escapeText(name) : name);
}

void StandardOutput::flush() {
    const auto text = std::exchange(m_buffer, {});
    writeAll(STDOUT_FILENO, "standard output", text);
}

}  // namespace cloudfs
