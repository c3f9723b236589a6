// SPDX-License-Identifier: Apache-2.0
#include "local/LocalSource.hpp"

#include "terminal/failures.hpp"
#include "terminal/waitingIo.hpp"

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

}  // namespace

LocalSource::LocalSource(const std::string& path, Reading reading) : m_path(path) {
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
    m_start = std::max<off_t>(::lseek(m_descriptor, 0, SEEK_CUR), 0);
    if (hasTrueSize(m_descriptor, status)) {
        m_size = static_cast<std::uint64_t>(std::max<off_t>(status.st_size - m_start, 0));
    } else if (reading == Reading::Repeated && !S_ISBLK(status.st_mode)) {
        m_spool.emplace();
    }
}

std::size_t LocalSource::read(char* buffer, std::size_t count) {
    const auto left = m_size ? *m_size - m_read : count;
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, left));
    const auto result = wanted == 0 ? 0
                        : m_spool   ? readSpooled(buffer, wanted)
                                    : readSome(m_descriptor, m_path, buffer, wanted);
    if (m_size && result == 0 && wanted > 0) {
        throw Failure(ErrorCode::Unknown, m_path, "the file got shorter while it was read");
    }
    m_read += result;
    return result;
}

// What was read before comes from the temporary disk; the rest goes there. A terminal that has told its end is not
// asked again, since it would wait for more.
std::size_t LocalSource::readSpooled(char* buffer, std::size_t count) {
    if (m_read < m_spool->size()) {
        return m_spool->read(m_read, buffer, count);
    }
    if (m_isSpoolComplete) {
        return 0;
    }
    const auto result = readSome(m_descriptor, m_path, buffer, count);
    m_spool->append({buffer, result});
    m_isSpoolComplete = result == 0;
    return result;
}

void LocalSource::rewind() {
    if (!m_spool && ::lseek(m_descriptor, m_start, SEEK_SET) < 0) {
        throwLocalFailure(m_path, errno);
    }
    m_read = 0;
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

}  // namespace cloudfs
