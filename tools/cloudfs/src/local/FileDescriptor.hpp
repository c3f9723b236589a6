// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>

namespace cloudfs {

/// Owns an open file of this machine. path is for messages only.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor();

    /// Open with the flags of open(2); close-on-exec is added. Errors: Failure, OperationInterrupted.
    static FileDescriptor open(const std::string& path, int flags);

    int get() const noexcept { return m_descriptor; }

    /// Close and report what the system could not write. Errors: Failure.
    void close(const std::string& path);

private:
    int m_descriptor = -1;
};

}  // namespace cloudfs
