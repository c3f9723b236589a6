// SPDX-License-Identifier: Apache-2.0
#include "fileFloor.hpp"

#include "harness.hpp"

#include <foundation/services/Files.hpp>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <system_error>

namespace bench {

namespace {

void checkSystem(bool condition, int error, const char* step) {
    if (!condition) {
        throw std::system_error(error, std::generic_category(), step);
    }
}

void forEachCall(std::uint64_t size, const std::function<void(std::uint64_t, std::size_t)>& call) {
    for (std::uint64_t offset = 0; offset < size; offset += kCallSize) {
        call(offset, static_cast<std::size_t>(std::min<std::uint64_t>(kCallSize, size - offset)));
    }
}

}  // namespace

FloorFile::FloorFile(std::uint64_t size, Pages pages)
    : m_path((foundation::temporaryFolder() / "bench-XXXXXX").native()), m_size(size), m_pages(pages) {
    const int descriptor = ::mkostemp(m_path.data(), O_CLOEXEC);
    checkSystem(descriptor >= 0, errno, "mkostemp");
    const int error = ::posix_fallocate(descriptor, 0, static_cast<off_t>(size));
    if (error == 0) {
        map(descriptor);
    }
    ::close(descriptor);
    if (m_data == nullptr) {
        ::unlink(m_path.c_str());
        checkSystem(false, error, "posix_fallocate or mmap");
    }
}

FloorFile::~FloorFile() {
    unmap();
    ::unlink(m_path.c_str());
}

void FloorFile::map() {
    const int descriptor = ::open(m_path.c_str(), O_RDWR | O_CLOEXEC);
    checkSystem(descriptor >= 0, errno, "open");
    map(descriptor);
    ::close(descriptor);
    checkSystem(m_data != nullptr, ENOMEM, "mmap");
}

void FloorFile::unmap() noexcept {
    if (m_data != nullptr) {
        ::munmap(m_data, m_size);
        m_data = nullptr;
    }
}

void FloorFile::map(int descriptor) {
    void* const address = ::mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    m_data = address == MAP_FAILED ? nullptr : static_cast<char*>(address);
    if (m_data != nullptr && m_pages == Pages::Huge) {
        ::madvise(address, m_size, MADV_HUGEPAGE);  // a hint: refused is as good as ignored
    }
}

void writeThroughFiles(const Arena& arena, std::uint64_t size, std::uint64_t partSize, Pages pages) {
    std::deque<FloorFile> files;
    for (std::uint64_t offset = 0; offset < size; offset += partSize) {
        auto& file = files.emplace_back(partSize, pages);
        char* const stored = arena.data() + offset;
        const auto partEnd = std::min(partSize, size - offset);
        forEachCall(partEnd,
                    [&](std::uint64_t at, std::size_t count) { std::memcpy(file.data() + at, callBuffer(), count); });
        forEachCall(partEnd,
                    [&](std::uint64_t at, std::size_t count) { std::memcpy(stored + at, file.data() + at, count); });
        file.unmap();
    }
    benchmark::ClobberMemory();
}

void readThroughFiles(const Arena& arena, std::uint64_t size, std::uint64_t partSize, std::uint64_t cacheSize,
                      Pages pages) {
    std::deque<FloorFile> files;
    for (std::uint64_t offset = 0; offset < size; offset += partSize) {
        auto& file = files.emplace_back(partSize, pages);
        const char* const stored = arena.data() + offset;
        const auto partEnd = std::min(partSize, size - offset);
        forEachCall(partEnd,
                    [&](std::uint64_t at, std::size_t count) { std::memcpy(file.data() + at, stored + at, count); });
        copyOut(file.data(), partEnd);
        file.unmap();
        if (files.size() * partSize > cacheSize) {
            files.pop_front();
        }
    }
}

void copyOut(const char* bytes, std::uint64_t size) {
    char* const buffer = callBuffer();
    forEachCall(size, [&](std::uint64_t at, std::size_t count) {
        std::memcpy(buffer, bytes + at, count);
        benchmark::DoNotOptimize(buffer);
        benchmark::ClobberMemory();
    });
}

}  // namespace bench
