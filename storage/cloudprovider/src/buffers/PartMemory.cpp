// SPDX-License-Identifier: Apache-2.0
#include "buffers/PartMemory.hpp"

#include <foundation/services/Files.hpp>

#include <sys/mman.h>

#include <algorithm>
#include <new>
#include <utility>

namespace storage::cloudprovider {

namespace {

// Clearing a large page, of 2 MiB usually, is worth it for who fills it: not for a small file.
constexpr std::uint64_t kLargePage = std::uint64_t{2} << 20;

// The smallest length that can be mapped.
std::uint64_t mappedSize(std::uint64_t size) {
    return std::max<std::uint64_t>(size, 1);
}

// Null when the system has no memory.
char* mapMemory(std::uint64_t size) noexcept {
    void* const data = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (data == MAP_FAILED) {
        return nullptr;
    }
#ifdef MADV_NOHUGEPAGE
    ::madvise(data, size, MADV_NOHUGEPAGE);
#endif
    return static_cast<char*>(data);
}

}  // namespace

bool PartMemory::take(std::uint64_t size) noexcept {
    const foundation::MutexLock lock(m_mutex);
    const bool isThere = size <= m_left;
    m_left -= isThere ? size : 0;
    return isThere;
}

void PartMemory::giveBack(std::uint64_t size) noexcept {
    const foundation::MutexLock lock(m_mutex);
    m_left += size;
}

std::unique_ptr<MemoryBuffer> MemoryBuffer::tryToMake(const std::shared_ptr<PartMemory>& memory, std::uint64_t size) {
    if (!memory->take(size)) {
        return nullptr;
    }
    char* const data = mapMemory(mappedSize(size));
    auto* const buffer = data == nullptr ? nullptr : new (std::nothrow) MemoryBuffer(memory, size, data);
    if (buffer == nullptr) {
        if (data != nullptr) {
            ::munmap(data, mappedSize(size));
        }
        memory->giveBack(size);
    }
    return std::unique_ptr<MemoryBuffer>(buffer);
}

MemoryBuffer::MemoryBuffer(std::shared_ptr<PartMemory> memory, std::uint64_t size, char* data) noexcept
    : m_memory(std::move(memory)), m_size(size), m_data(data) {}

MemoryBuffer::~MemoryBuffer() {
    ::munmap(m_data, mappedSize(m_size));
    m_memory->giveBack(m_size);
}

void MemoryBuffer::reserve(std::uint64_t size) {
    if (!m_hasLargePages && size >= kLargePage) {
        foundation::adviseLargePages(m_data, m_size);
        m_hasLargePages = true;
    }
}

}  // namespace storage::cloudprovider
