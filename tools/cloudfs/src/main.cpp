// SPDX-License-Identifier: Apache-2.0
#include "commandline/CommandLine.hpp"
#include "commands/describe.hpp"
#include "terminal/failures.hpp"
#include "terminal/interrupts.hpp"

#include <exception>
#include <iostream>

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
constexpr int kSignalBase = 128;

int report(const std::exception& failure, int status) {
    std::cerr << cloudfs::commands::describe(failure) << '\n';
    return status;
}

// Commands throw UsageError for arguments that make no sense, OperationInterrupted when the user wants them
// to stop, OutputClosed, and for whatever else fails Failure (which names a path) or the provider's
// Exception. A provider may put an interrupt into terms of its own, so the signal is asked for, not the
// exception.
int runReporting(int argc, const char* const* argv) {
    try {
        cloudfs::CommandLine commandLine;
        if (const auto status = commandLine.parse(argc, argv)) {
            return *status;
        }
        commandLine.run();
        return 0;
    } catch (const cloudfs::UsageError& error) {
        std::cerr << cloudfs::commands::describe(error) << cloudfs::kUsageHint;
        return kWrongUsage;
    } catch (const cloudfs::OutputClosed&) {
        return kFailed;
    } catch (const std::exception& failure) {
        if (const auto signal = cloudfs::interruptingSignal()) {
            std::cerr << "interrupted\n";
            return kSignalBase + *signal;
        }
        return report(failure, kFailed);
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        cloudfs::watchInterrupts();
        return runReporting(argc, argv);
    } catch (const std::exception& failure) {
        return report(failure, kFailed);
    }
}
