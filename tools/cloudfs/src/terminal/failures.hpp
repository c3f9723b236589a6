// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/Exception.hpp>

#include <cstddef>
#include <exception>
#include <stdexcept>
#include <string>

namespace cloudfs {

/// What the command line asks for makes no sense; the program ends with the status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What follows the message of a wrong usage, with the end of its line.
inline constexpr const char* kUsageHint = "\nRun with --help for more information.\n";

/// Several things could not be done; each has been told already.
class PartFailure : public std::runtime_error {
public:
    explicit PartFailure(std::size_t failures);
};

/// Whoever reads our standard output has gone; there is nobody left to tell.
class OutputClosed : public std::exception {
public:
    const char* what() const noexcept override { return "standard output is closed"; }
};

/// What the line that tells a failure begins with: the code's name, "Failed" where the host has no code for the cause.
std::string labelOf(foundation::storage::provider::ErrorCode code);

/// A failed operation on one path, of the store or of this machine. what() has the shape of the provider's
/// Exception, "NotFound: /a/b.txt: the cause", but for its beginning: see labelOf.
class Failure : public std::runtime_error {
public:
    Failure(foundation::storage::provider::ErrorCode code, const std::string& path, const std::string& cause);
};

/// A failed operation of a stream of the store, with the code that its caller may branch on.
class StreamFailure : public Failure, public foundation::storage::provider::ErrorCoded {
public:
    StreamFailure(foundation::storage::provider::ErrorCode code, const std::string& path, const std::string& cause);

    foundation::storage::provider::ErrorCode getErrorCode() const noexcept override { return m_code; }

private:
    const foundation::storage::provider::ErrorCode m_code;
};

/// Say for people why an operation of the store failed: by its code where that says all there is to say, else in the
/// store's own words.
std::string causeOf(foundation::storage::provider::ErrorCode code, const std::string& ownWords);

/// Refuse a path, of the store or of this machine, that is not valid UTF-8. Errors: Failure.
void failUnlessUtf8(const std::string& path);

/// The code that fits an errno value.
foundation::storage::provider::ErrorCode toErrorCode(int error);

/// Throw the Failure of a system call on a local path. error is an errno value; for ENOENT, what is named is the first
/// folder that is missing on the way there, if one is.
[[noreturn]] void throwLocalFailure(const std::string& path, int error);

/// Run an operation of a stream: its failures, which know no path, become StreamFailures of the path.
template <typename Operation>
auto namingPath(const std::string& path, Operation operation) {
    try {
        return operation();
    } catch (const foundation::storage::provider::ByteStreamFailure& failure) {
        throw StreamFailure(failure.getErrorCode(), path,
                            causeOf(failure.getErrorCode(), failure.getContext().getMessage()));
    }
}

}  // namespace cloudfs
