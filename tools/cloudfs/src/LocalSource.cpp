// SPDX-License-Identifier: Apache-2.0
#include "LocalSource.hpp"

#include "failures.hpp"

#include <foundation/services/Text.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;

LocalSource::LocalSource(const std::string& path) : m_path(path) {
    if (path == kStandardStream) {
        m_path = "standard input";
        m_descriptor = STDIN_FILENO;
    } else {
        failUnlessUtf8(path);
        m_file = FileDescriptor::open(path, O_RDONLY);
        m_descriptor = m_file.get();
    }
    struct stat status {};
    if (::fstat(m_descriptor, &status) != 0) {
        throwLocalFailure(m_path, errno);
    }
    if (S_ISDIR(status.st_mode)) {
        throwLocalFailure(m_path, EISDIR);
    }
    if (S_ISREG(status.st_mode)) {
        m_size = static_cast<std::uint64_t>(status.st_size);
    }
}

std::size_t LocalSource::read(char* buffer, std::size_t count) {
    return readSome(m_descriptor, m_path, buffer, count);
}

std::string localName(const std::string& path) {
    const auto last = path.find_last_not_of('/');
    if (last == std::string::npos || path == kStandardStream) {
        return {};
    }
    const auto slash = path.rfind('/', last);
    const auto begin = slash == std::string::npos ? 0 : slash + 1;
    auto name = path.substr(begin, last + 1 - begin);
    return name == "." || name == ".." ? std::string() : name;
}

void failUnlessUtf8(const std::string& path) {
    try {
        foundation::toUtf16(path);
    } catch (const foundation::InvalidTextError&) {
        throw Failure(ErrorCode::InvalidLocation, path, "the name is not valid UTF-8");
    }
}

}  // namespace cloudfs
