// SPDX-License-Identifier: Apache-2.0
#include "DiskReserve.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>

namespace storage::cloudprovider::sqlite {

namespace {

constexpr std::uint64_t kMiB = std::uint64_t{1024} * 1024;

// The log up to where it begins anew, 1,000 pages of 16 KiB (sqlite.org/wal.html#ckpt), and two transactions that go
// beyond: the removal of a large object, and a step of giving its room back. With 4 MiB removals failed on a full disk.
constexpr std::uint64_t kLargest = 48 * kMiB;

std::uint64_t sizeOf(const std::string& file) {
    struct stat status {};
    return ::stat(file.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::uint64_t freeRoom(const std::string& file) {
    struct statvfs status {};
    return ::statvfs(file.c_str(), &status) == 0 ? std::uint64_t{status.f_bavail} * status.f_frsize : 0;
}

}  // namespace

DiskReserve::DiskReserve(const std::string& storeFile) : m_storeFile(storeFile), m_file(storeFile + "-reserve") {}

void DiskReserve::keep() const noexcept {
    const std::uint64_t wanted = wantedSize();
    // Ample: the store, and others, have as much again.
    if (sizeOf(m_file) < wanted && freeRoom(m_storeFile) >= 2 * wanted) {
        resize(wanted);
    }
}

void DiskReserve::restore() const noexcept {
    const std::uint64_t wanted = wantedSize();
    if (sizeOf(m_file) < wanted) {
        resize(wanted);
    }
}

void DiskReserve::giveUp() const noexcept {
    ::unlink(m_file.c_str());
}

bool DiskReserve::isDiskShort() const noexcept {
    return freeRoom(m_storeFile) < wantedSize();
}

// No transaction, and no step, writes a page twice, so a small store never needs more than its pages twice.
std::uint64_t DiskReserve::wantedSize() const noexcept {
    const std::uint64_t size = (2 * sizeOf(m_storeFile) + kMiB - 1) / kMiB * kMiB;
    return std::min(size, kLargest);
}

void DiskReserve::resize(std::uint64_t size) const noexcept {
    struct stat status {};
    constexpr mode_t kPermissions = 0666;
    struct rlimit limit {};
    if (m_storeFile.empty() || ::stat(m_storeFile.c_str(), &status) != 0 || ::getrlimit(RLIMIT_FSIZE, &limit) != 0 ||
        limit.rlim_cur < size) {  // going beyond would be a signal
        return;
    }
    const int file = ::open(m_file.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, status.st_mode & kPermissions);
    if (file < 0) {
        return;
    }
    const auto former = static_cast<off_t>(sizeOf(m_file));
    if (::posix_fallocate(file, 0, static_cast<off_t>(size)) != 0) {
        // What was taken before the disk was full goes back; nothing more can be done if that fails.
        [[maybe_unused]] const int result = former == 0 ? ::unlink(m_file.c_str()) : ::ftruncate(file, former);
    }
    ::close(file);
}

}  // namespace storage::cloudprovider::sqlite
