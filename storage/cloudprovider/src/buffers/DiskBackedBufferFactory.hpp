// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "buffers/Buffer.hpp"
#include "buffers/PartMemory.hpp"

#include <foundation/services/PrivateFolder.hpp>

#include <boost/filesystem/path.hpp>
#include <boost/iostreams/device/mapped_file.hpp>

#include <cstdint>
#include <memory>
#include <utility>

namespace storage::cloudprovider {

namespace detail {

/// Owns a temporary file: made by the constructor, deleted by the destructor.
class DiskFile {
public:
    /// Make an empty file. Throws UnknownErrorException, or std::bad_alloc, and leaves no file behind when that fails.
    DiskFile();
    DiskFile(const DiskFile&) = delete;
    DiskFile& operator=(const DiskFile&) = delete;
    ~DiskFile();

    const boost::filesystem::path& path() const noexcept { return m_path; }

    /// Make the file that long and reserve the blocks of the bytes that come to it. Throws UnknownErrorException, and
    /// gives back what it got until then.
    void updateFileSize(std::uint64_t formerSizeInBytes, std::uint64_t newSizeInBytes);

private:
    const std::shared_ptr<foundation::PrivateFolder> m_folder;
    const boost::filesystem::path m_path;
};

}  // namespace detail

/// The folder of this process that the files lie in. Whoever makes many of them, one after the other, had better hold
/// it meanwhile, lest it is made for each. Throws std::bad_alloc.
std::shared_ptr<foundation::PrivateFolder> holdFolderOfParts();

/// When a buffer takes the room on the disk that its bytes need.
enum class Room : std::uint8_t {
    AtOnce,  ///< when it is made, for all of them
    InSteps  ///< as it is reserved; the steps become larger
};

/// A buffer whose bytes lie in a temporary file, so that many large ones can be held without filling the
/// heap. Its whole size is mapped, however much of it has room. One thread at a time, but for the bytes.
class DiskBackedBuffer : public Buffer {
public:
    /// Throws UnknownErrorException when the file cannot be made, for want of room too.
    DiskBackedBuffer(std::uint64_t size, Room room);
    ~DiskBackedBuffer() override;

    std::uint64_t size() const override;

    /// Throws what Boost.Iostreams throws when the file cannot be mapped; the buffer then stays unmapped.
    void open() override;
    bool isOpen() const override;
    char* data() override;
    const char* data() const override;
    void reserve(std::uint64_t size) override;
    void close() override;

private:
    boost::iostreams::mapped_file m_file;
    const std::uint64_t m_size;
    std::uint64_t m_reserved = 0;  // leading bytes that lie in the file, with their blocks
    const std::unique_ptr<detail::DiskFile> m_diskFile;
};

/// Makes MemoryBuffers as long as there is memory for parts, else DiskBackedBuffers. Never changes: any thread may call
/// it.
class DiskBackedBufferFactory : public BufferFactory {
public:
    /// Values   memory: for parts; null: there is none.
    explicit DiskBackedBufferFactory(Room room = Room::AtOnce, std::shared_ptr<PartMemory> memory = nullptr)
        : m_room(room), m_memory(std::move(memory)) {}

    /// Throws UnknownErrorException, naming the reason, when there is no room or no right to make a file, and
    /// std::bad_alloc when there is no memory.
    std::unique_ptr<Buffer> build(std::uint64_t size) override;

private:
    const Room m_room;
    const std::shared_ptr<PartMemory> m_memory;
};

}  // namespace storage::cloudprovider
