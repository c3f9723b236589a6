// SPDX-License-Identifier: Apache-2.0
#include "File.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <istream>
#include <ostream>
#include <system_error>
#include <vector>

namespace example {

namespace {

constexpr std::uint64_t kBufferSize = std::uint64_t{256} * 1024;

[[noreturn]] void fail(int error, const char* what = "") {
    throw std::system_error(error, std::generic_category(), what);
}

void write(int descriptor, const char* bytes, std::uint64_t count) {
    while (count > 0) {
        const auto written = ::write(descriptor, bytes, count);
        if (written < 0 && errno != EINTR) {
            fail(errno);
        }
        const auto taken = static_cast<std::uint64_t>(std::max<ssize_t>(written, 0));
        bytes += taken;
        count -= taken;
    }
}

}  // namespace

File::File(const std::filesystem::path& path) : m_descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (m_descriptor < 0) {
        fail(errno);
    }
}

File::~File() {
    ::close(m_descriptor);
}

struct stat File::status() const {
    struct stat status {};
    if (::fstat(m_descriptor, &status) != 0) {
        fail(errno);
    }
    return status;
}

void File::read(std::uint64_t position, std::uint64_t size, std::ostream& sink) const {
    std::vector<char> buffer(std::min(kBufferSize, size));
    while (size > 0) {
        const auto got = ::pread(m_descriptor, buffer.data(), std::min<std::uint64_t>(buffer.size(), size),
                                 static_cast<off_t>(position));
        if (got < 0 && errno != EINTR) {
            fail(errno);
        }
        if (got == 0) {
            fail(EINVAL, "the file ends before");
        }
        if (!sink.write(buffer.data(), std::max<ssize_t>(got, 0))) {
            fail(EPIPE, "the receiver takes no more");
        }
        const auto count = static_cast<std::uint64_t>(std::max<ssize_t>(got, 0));
        position += count;
        size -= count;
    }
}

void File::sync() const {
    if (::fsync(m_descriptor) != 0) {
        fail(errno);
    }
}

NewFile::NewFile(const std::filesystem::path& folder, const std::string& start)
    : m_path((folder / (start + "XXXXXX")).native()), m_descriptor(::mkostemp(m_path.data(), O_CLOEXEC)) {
    if (m_descriptor < 0) {
        fail(errno);
    }
}

NewFile::~NewFile() {
    ::close(m_descriptor);
    if (!m_isKept) {
        ::unlink(m_path.c_str());
    }
}

// NOLINTNEXTLINE(readability-make-member-function-const): it changes the file
void NewFile::append(std::istream& data, std::uint64_t size) {
    std::vector<char> buffer(std::min(kBufferSize, size));
    while (size > 0) {
        const auto count = std::min<std::uint64_t>(buffer.size(), size);
        if (!data.read(buffer.data(), static_cast<std::streamsize>(count))) {
            fail(EINVAL, "the data ends before its size");
        }
        write(m_descriptor, buffer.data(), count);
        size -= count;
    }
}

// NOLINTNEXTLINE(readability-make-member-function-const): it changes the file
void NewFile::append(const File& other, std::uint64_t position, std::uint64_t size) {
    auto from = static_cast<off_t>(position);
    while (size > 0) {
        const auto copied = ::copy_file_range(other.m_descriptor, &from, m_descriptor, nullptr, size, 0);
        if (copied < 0 && errno != EINTR) {
            fail(errno);
        }
        if (copied == 0) {
            fail(EINVAL, "the file ends before");
        }
        size -= static_cast<std::uint64_t>(std::max<ssize_t>(copied, 0));
    }
}

void NewFile::sync() const {
    if (::fsync(m_descriptor) != 0) {
        fail(errno);
    }
}

bool NewFile::moveTo(const std::filesystem::path& path) {
    if (::rename(m_path.c_str(), path.c_str()) == 0) {
        m_isKept = true;
        return true;
    }
    if (errno != ENOENT) {
        fail(errno);
    }
    return false;
}

std::string NewFile::keep() noexcept {
    m_isKept = true;
    return m_path.substr(m_path.rfind('/') + 1);
}

}  // namespace example
