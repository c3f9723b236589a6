// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "buffers/Buffer.hpp"

#include <foundation/threads/Mutex.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace storage::cloudprovider {

/// How much memory the parts of a provider's files may take. Threads: any.
class PartMemory {
public:
    /// Values   limit: in bytes.
    explicit PartMemory(std::uint64_t limit) : m_left(limit) {}
    PartMemory(const PartMemory&) = delete;
    PartMemory& operator=(const PartMemory&) = delete;

    /// Take so many bytes. False when there are not that many left; then nothing has changed.
    bool take(std::uint64_t size) noexcept;

    /// Give back what was taken.
    void giveBack(std::uint64_t size) noexcept;

private:
    foundation::Mutex m_mutex;  // a leaf
    std::uint64_t m_left CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

/// A buffer whose bytes lie in memory. The system gives the pages as they are touched. One thread at a time, but for
/// the bytes.
class MemoryBuffer : public Buffer {
public:
    /// Make one of size bytes; null when they are more than memory has left, or the system has none.
    static std::unique_ptr<MemoryBuffer> tryToMake(const std::shared_ptr<PartMemory>& memory, std::uint64_t size);

    ~MemoryBuffer() override;

    std::uint64_t size() const override { return m_size; }
    void open() override { m_isOpen = true; }
    bool isOpen() const override { return m_isOpen; }
    char* data() override { return m_isOpen ? m_data : nullptr; }
    const char* data() const override { return m_isOpen ? m_data : nullptr; }
    void reserve(std::uint64_t size) override;
    void close() override { m_isOpen = false; }

private:
    MemoryBuffer(std::shared_ptr<PartMemory> memory, std::uint64_t size, char* data) noexcept;

    const std::shared_ptr<PartMemory> m_memory;
    const std::uint64_t m_size;
    char* const m_data;
    bool m_isOpen = false;
    bool m_hasLargePages = false;
};

}  // namespace storage::cloudprovider
