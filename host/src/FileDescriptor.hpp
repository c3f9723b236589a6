// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

namespace foundation {

/// Closes what it holds; -1 is nothing.
class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
        }
    }

    int get() const noexcept { return m_descriptor; }
    bool isOpen() const noexcept { return m_descriptor >= 0; }

private:
    const int m_descriptor;
};

}  // namespace foundation
