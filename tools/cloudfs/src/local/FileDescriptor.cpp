// SPDX-License-Identifier: Apache-2.0
#include "local/FileDescriptor.hpp"

#include "terminal/failures.hpp"

#include <foundation/services/InterruptState.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace cloudfs {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
}

FileDescriptor::~FileDescriptor() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

FileDescriptor FileDescriptor::open(const std::string& path, int flags) {
    while (true) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        FileDescriptor file(::open(path.c_str(), flags | O_CLOEXEC));
        if (file.get() >= 0) {
            return file;
        }
        if (errno != EINTR) {
            throwLocalFailure(path, errno);
        }
    }
}

void FileDescriptor::close(const std::string& path) {
    if (::close(std::exchange(m_descriptor, -1)) != 0 && errno != EINTR) {
        throwLocalFailure(path, errno);
    }
}

}  // namespace cloudfs
