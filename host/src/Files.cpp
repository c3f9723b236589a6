// SPDX-License-Identifier: Apache-2.0
#include "FileDescriptor.hpp"

#include <foundation/services/Files.hpp>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string>
#include <system_error>

namespace foundation {

namespace {

constexpr auto kMaxFileSize = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());

[[noreturn]] void throwSystemError(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

}  // namespace

boost::filesystem::path temporaryFolder() {
    const char* folder = std::getenv("TMPDIR");
    return folder != nullptr && *folder != '\0' ? boost::filesystem::absolute(folder) : "/tmp";
}

boost::filesystem::path createTemporaryFile(const boost::filesystem::path& folder, std::string_view prefix) {
    std::string name = (folder / (std::string(prefix) + "XXXXXX")).native();
    const int descriptor = ::mkostemp(name.data(), O_CLOEXEC);
    if (descriptor < 0) {
        const int error = errno;  // what follows may change it
        throwSystemError(error, "cannot create a temporary file in " + folder.native());
    }
    ::close(descriptor);
    try {
        return name;  // which copies it
    } catch (...) {
        ::unlink(name.c_str());
        throw;
    }
}

void reserveBlocks(const boost::filesystem::path& path, std::uint64_t offset, std::uint64_t size) {
    if (size == 0) {
        return;
    }
    const FileDescriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (file.get() < 0) {
        throwSystemError(errno, "cannot open " + path.native());
    }
    int error = size > kMaxFileSize || offset > kMaxFileSize ? EFBIG : EINTR;
    while (error == EINTR) {
        error = ::posix_fallocate(file.get(), static_cast<off_t>(offset), static_cast<off_t>(size));
    }
    if (error != 0 && error != EOPNOTSUPP && error != EINVAL) {
        throwSystemError(error, "cannot reserve " + std::to_string(size) + " bytes for " + path.native());
    }
}

void adviseLargePages([[maybe_unused]] char* data, [[maybe_unused]] std::uint64_t size) noexcept {
#ifdef MADV_HUGEPAGE
    ::madvise(data, size, MADV_HUGEPAGE);
#endif
}

void removeFile(const boost::filesystem::path& path) {
    if (!boost::filesystem::remove(path)) {
        throw boost::filesystem::filesystem_error(
            "cannot remove", path,
            boost::system::errc::make_error_code(boost::system::errc::no_such_file_or_directory));
    }
}

}  // namespace foundation
