// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Buffer.hpp"

#include <boost/filesystem/path.hpp>
#include <boost/iostreams/device/mapped_file.hpp>

#include <cstdint>
#include <memory>

namespace storage::cloudprovider {

namespace detail {

/// Owns a temporary file: made by the constructor, deleted by the destructor.
class DiskFile {
public:
    /// Make a file of that size whose blocks are reserved; a size of 0 makes a file of one byte, because an
    /// empty file cannot be mapped. Throws UnknownErrorException, or std::bad_alloc, and leaves no file behind when
    /// that fails.
    explicit DiskFile(std::uint64_t sizeInBytes);
    DiskFile(const DiskFile&) = delete;
    DiskFile& operator=(const DiskFile&) = delete;
    ~DiskFile();

    const boost::filesystem::path& path() const noexcept { return m_path; }

private:
    void updateFileSize(std::uint64_t newSizeInBytes);
    void remove() noexcept;

    boost::filesystem::path m_path;
};

}  // namespace detail

/// A buffer whose bytes lie in a temporary file, so that many large ones can be held without filling the
/// heap. One thread at a time.
class DiskBackedBuffer : public Buffer {
public:
    /// Throws UnknownErrorException when the file cannot be made, for want of room too.
    explicit DiskBackedBuffer(std::uint64_t size);
    ~DiskBackedBuffer() override;

    std::uint64_t size() const override;

    /// Throws what Boost.Iostreams throws when the file cannot be mapped; the buffer then stays unmapped.
    void open() override;
    bool isOpen() const override;
    char* data() override;
    const char* data() const override;
    void close() override;

private:
    boost::iostreams::mapped_file m_file;
    const std::uint64_t m_size;
    const std::unique_ptr<detail::DiskFile> m_diskFile;
};

/// Makes DiskBackedBuffers. Holds nothing: any thread may call it.
class DiskBackedBufferFactory : public BufferFactory {
public:
    /// Throws UnknownErrorException, naming the reason, when there is no room or no right to make a file, and
    /// std::bad_alloc when there is no memory.
    std::unique_ptr<Buffer> build(std::uint64_t size) override;
};

}  // namespace storage::cloudprovider
