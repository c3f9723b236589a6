// SPDX-License-Identifier: Apache-2.0
#include "local/SpoolFile.hpp"

#include "terminal/failures.hpp"
#include "terminal/waitingIo.hpp"

#include <foundation/services/Files.hpp>

#include <fcntl.h>
#include <unistd.h>
#include <boost/filesystem/operations.hpp>

#include <cerrno>
#include <system_error>

namespace cloudfs {

namespace {

struct RemovedInTheEnd {
    explicit RemovedInTheEnd(boost::filesystem::path file) : path(std::move(file)) {}
    RemovedInTheEnd(const RemovedInTheEnd&) = delete;
    RemovedInTheEnd& operator=(const RemovedInTheEnd&) = delete;
    ~RemovedInTheEnd() {
        boost::system::error_code error;
        boost::filesystem::remove(path, error);
    }

    const boost::filesystem::path path;
};

std::string folderName() {
    return foundation::temporaryFolder().native();
}

boost::filesystem::path makeFile() {
    try {
        return foundation::createTemporaryFile(foundation::temporaryFolder(), "cloudfs-");
    } catch (const std::system_error& failure) {
        throwLocalFailure(folderName(), failure.code().value());
    }
}

}  // namespace

SpoolFile::SpoolFile() {
    const RemovedInTheEnd named(makeFile());
    m_file = FileDescriptor::open(named.path.native(), O_RDWR);
}

void SpoolFile::append(std::string_view data) {
    writeAll(m_file.get(), folderName(), data);
    m_size += data.size();
}

std::size_t SpoolFile::read(std::uint64_t position, char* buffer, std::size_t count) const {
    while (true) {
        const auto result = ::pread(m_file.get(), buffer, count, static_cast<off_t>(position));
        if (result > 0) {
            return static_cast<std::size_t>(result);
        }
        if (result == 0 || errno != EINTR) {
            throwLocalFailure(folderName(), result == 0 ? EIO : errno);
        }
    }
}

}  // namespace cloudfs
