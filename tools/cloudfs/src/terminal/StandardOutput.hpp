// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace cloudfs {

/// Buffered text on standard output.
class StandardOutput {
public:
    StandardOutput();
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    /// Writes what is left as far as possible: lines that were complete before a failure are shown.
    ~StandardOutput();

    /// Errors: Failure, OutputClosed, OperationInterrupted, for this text or for earlier one.
    void write(std::string_view text);

    /// Write a name from the store: escaped for a terminal, as it is for a pipe or file. Errors as for write.
    void writeName(std::string_view name);

    /// Write what is buffered. Errors as for write.
    void flush();

private:
    const bool m_isTerminal;
    std::string m_buffer;
};

}  // namespace cloudfs
