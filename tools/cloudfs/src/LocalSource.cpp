// SPDX-License-Identifier: Apache-2.0
#include "LocalSource.hpp"

#include "failures.hpp"

#include <foundation/services/Text.hpp>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;

namespace {

// The system's own files are made up as they are read, whatever size they show.
bool hasTrueSize(int descriptor, const struct stat& status) {
    struct statfs system {};
    return S_ISREG(status.st_mode) && ::fstatfs(descriptor, &system) == 0 && system.f_type != PROC_SUPER_MAGIC &&
           system.f_type != SYSFS_MAGIC;
}

// Standard input may have been read in part by somebody else.
std::uint64_t sizeOfRest(int descriptor, const struct stat& status) {
    const auto position = ::lseek(descriptor, 0, SEEK_CUR);
    return static_cast<std::uint64_t>(std::max<off_t>(status.st_size - std::max<off_t>(position, 0), 0));
}

}  // namespace

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
    if (hasTrueSize(m_descriptor, status)) {
        m_size = sizeOfRest(m_descriptor, status);
    }
}

std::size_t LocalSource::read(char* buffer, std::size_t count) {
    const auto left = m_size ? *m_size - m_read : count;
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, left));
    const auto result = wanted == 0 ? 0 : readSome(m_descriptor, m_path, buffer, wanted);
    if (m_size && result == 0 && wanted > 0) {
        throw Failure(ErrorCode::Unknown, m_path, "the file got shorter while it was read");
    }
    m_read += result;
    return result;
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
