// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>

namespace cloudfs {

/// Reads the program's arguments: parse once, then run.
class CommandLine {
public:
    CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;
    ~CommandLine();

    /// Read the arguments. What is wrong with them, and help that was asked for, is shown at once.
    ///
    /// Result   the exit status when there is nothing to run.
    /// Errors   UsageError.
    std::optional<int> parse(int argc, const char* const* argv);

    /// Do what was asked for. Errors: see main.cpp.
    void run() const;

private:
    class Grammar;  // keeps the parser's library to one source

    std::unique_ptr<Grammar> m_grammar;
};

}  // namespace cloudfs
