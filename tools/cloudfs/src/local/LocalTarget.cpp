// SPDX-License-Identifier: Apache-2.0
#include "local/LocalTarget.hpp"

#include "terminal/failures.hpp"
#include "terminal/waitingIo.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <utility>

namespace cloudfs {

namespace {

// What is there under the name; with follow, what a link leads to. Nothing when there is nothing.
std::optional<mode_t> modeOf(const std::string& path, bool follow) {
    struct stat status {};
    if ((follow ? ::stat(path.c_str(), &status) : ::lstat(path.c_str(), &status)) == 0) {
        return status.st_mode;
    }
    if (errno != ENOENT) {
        throwLocalFailure(path, errno);
    }
    return std::nullopt;
}

std::string resolveLinks(const std::string& path) {
    struct Free {
        void operator()(char* text) const { std::free(text); }  // NOLINT: allocated by realpath
    };
    const std::unique_ptr<char, Free> resolved(::realpath(path.c_str(), nullptr));
    if (!resolved) {
        throwLocalFailure(path, errno);
    }
    return resolved.get();
}

// Asking umask itself would change it for a moment, in which other threads make files.
mode_t creationMask() {
    constexpr mode_t kUsual = 022;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("Umask:")) {
            return static_cast<mode_t>(std::strtoul(line.c_str() + line.find(':') + 1, nullptr, 8));
        }
    }
    return kUsual;
}

// Permissions of a new file, which the system would have worked out had open made it.
mode_t defaultPermissions() {
    constexpr mode_t kReadWriteForAll = 0666;
    return kReadWriteForAll & ~creationMask();
}

mode_t permissionsFor(const std::string& path) {
    constexpr mode_t kPermissionBits = 0777;
    const auto existing = modeOf(path, false);
    return existing && S_ISREG(*existing) ? *existing & kPermissionBits : defaultPermissions();
}

timespec toTimespec(const boost::posix_time::ptime& time) {
    static const boost::posix_time::ptime kEpoch(boost::gregorian::date(1970, 1, 1));
    const auto sinceEpoch = time - kEpoch;
    constexpr std::int64_t kNanosecondsPerMicrosecond = 1000;
    constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
    const auto microseconds = sinceEpoch.total_microseconds();
    auto seconds = microseconds / kMicrosecondsPerSecond;
    auto rest = microseconds % kMicrosecondsPerSecond;
    if (rest < 0) {
        rest += kMicrosecondsPerSecond;
        --seconds;
    }
    return {static_cast<time_t>(seconds), static_cast<long>(rest * kNanosecondsPerMicrosecond)};
}

}  // namespace

LocalTarget::LocalTarget(std::string path, Links links) : m_path(std::move(path)) {
    const bool follow = links == Links::Follow;
    const auto mode = modeOf(m_path, false);
    if (mode && S_ISLNK(*mode) && follow) {
        m_path = resolveLinks(m_path);
    }
    const auto existing = modeOf(m_path, follow);
    if (existing && S_ISDIR(*existing)) {
        throwLocalFailure(m_path, EISDIR);
    }
    const bool isReplaceable = !existing || S_ISREG(*existing) || S_ISLNK(*existing);
    if (isReplaceable) {
        createTemporary();
    } else if (follow) {
        m_file = FileDescriptor::open(m_path, O_WRONLY);
    } else {
        throwLocalFailure(m_path, EEXIST);
    }
}

LocalTarget::~LocalTarget() {
    if (!m_temporaryPath.empty()) {
        ::unlink(m_temporaryPath.c_str());
    }
}

void LocalTarget::createTemporary() {
    const auto slash = m_path.rfind('/');
    auto path = (slash == std::string::npos ? "" : m_path.substr(0, slash + 1)) + ".cloudfs-XXXXXX";
    m_file = FileDescriptor(::mkostemp(path.data(), O_CLOEXEC));
    if (m_file.get() < 0) {
        throwLocalFailure(m_path, errno);
    }
    m_temporaryPath = std::move(path);
}

void LocalTarget::write(std::string_view data) {
    writeAll(m_file.get(), m_path, data);
}

void LocalTarget::writeAt(std::uint64_t offset, std::string_view data) const {
    while (!data.empty()) {
        const auto written = ::pwrite(m_file.get(), data.data(), data.size(), static_cast<off_t>(offset));
        if (written >= 0) {
            data.remove_prefix(static_cast<std::size_t>(written));
            offset += static_cast<std::uint64_t>(written);
        } else if (errno != EINTR) {
            throwLocalFailure(m_path, errno);
        }
    }
}

void LocalTarget::complete(const boost::posix_time::ptime& lastModified) {
    if (!m_temporaryPath.empty() && ::fchmod(m_file.get(), permissionsFor(m_path)) != 0) {
        throwLocalFailure(m_path, errno);
    }
    if (!m_temporaryPath.empty() && !lastModified.is_special()) {
        const timespec times[] = {{0, UTIME_OMIT}, toTimespec(lastModified)};
        if (::futimens(m_file.get(), static_cast<const timespec*>(times)) != 0) {
            throwLocalFailure(m_path, errno);
        }
    }
    m_file.close(m_path);
    if (!m_temporaryPath.empty()) {
        if (std::rename(m_temporaryPath.c_str(), m_path.c_str()) != 0) {
            throwLocalFailure(m_path, errno);
        }
        m_temporaryPath.clear();
    }
}

}  // namespace cloudfs
