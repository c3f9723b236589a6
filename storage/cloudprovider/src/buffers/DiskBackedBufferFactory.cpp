// SPDX-License-Identifier: Apache-2.0
#include "buffers/DiskBackedBufferFactory.hpp"

#include "support/Trace.hpp"
#include "support/host.hpp"
#include "support/translateException.hpp"

#include <foundation/services/Files.hpp>
#include <storage/cloudprovider/CloudException.hpp>

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <cassert>
#include <new>

namespace storage::cloudprovider {

namespace {

// The smallest length that can be mapped.
constexpr std::uint64_t kMinFileSize = 1;

// A file that grows at least doubles, so that filling it takes few steps, and takes no more than so much ahead of need.
// The least is the usual block of a file system.
constexpr std::uint64_t kLeastStep = 4096;
constexpr std::uint64_t kLargestStep = std::uint64_t{4} << 20;

[[noreturn]] void throwCurrentAsUnknownError() {
    throw UnknownErrorException(host::ExceptionContext("no temporary file: " + describeCurrentException()));
}

boost::filesystem::path createFile(foundation::PrivateFolder& folder) {
    try {
        return folder.createFile();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        throwCurrentAsUnknownError();
    }
}

}  // namespace

namespace detail {

DiskFile::DiskFile() : m_folder(holdFolderOfParts()), m_path(createFile(*m_folder)) {}

DiskFile::~DiskFile() {
    try {
        foundation::removeFile(m_path);
    } catch (...) {
        CLOUDPROVIDER_TRACE(trace::kCaughtException, "Failed to delete DiskFile ", m_path.native());
        traceCaughtException();
    }
}

void DiskFile::updateFileSize(std::uint64_t formerSizeInBytes, std::uint64_t newSizeInBytes) {
    CLOUDPROVIDER_TRACE_FUNCTION(" newSizeInBytes=", newSizeInBytes);
    try {
        boost::filesystem::resize_file(m_path, newSizeInBytes);
        // A sparse file would meet a full disk as a signal, on the first touch of a mapped page.
        foundation::reserveBlocks(m_path, formerSizeInBytes, newSizeInBytes - formerSizeInBytes);
    } catch (...) {
        // Some file systems keep what they had reserved before the disk was full.
        boost::system::error_code ignored;
        boost::filesystem::resize_file(m_path, formerSizeInBytes, ignored);
        throwCurrentAsUnknownError();
    }
}

}  // namespace detail

std::shared_ptr<foundation::PrivateFolder> holdFolderOfParts() {
    return foundation::PrivateFolder::hold("cloudprovider-parts.");
}

DiskBackedBuffer::DiskBackedBuffer(std::uint64_t size, Room room)
    : m_size(size), m_diskFile(std::make_unique<detail::DiskFile>()) {
    if (room == Room::AtOnce) {
        m_diskFile->updateFileSize(0, std::max(m_size, kMinFileSize));
        m_reserved = m_size;
    }
}

DiskBackedBuffer::~DiskBackedBuffer() {
    try {
        if (m_file.is_open()) {
            m_file.close();
        }
    } catch (...) {
        traceCaughtException();
    }
}

std::uint64_t DiskBackedBuffer::size() const {
    return m_size;
}

void DiskBackedBuffer::open() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    boost::iostreams::mapped_file_params params(m_diskFile->path().native());
    params.flags = boost::iostreams::mapped_file::readwrite;
    params.length =
        std::max(m_size, kMinFileSize);  // also of a file that is shorter yet: the system maps what will come
    m_file.open(params);
}

bool DiskBackedBuffer::isOpen() const {
    return m_file.is_open();
}

char* DiskBackedBuffer::data() {
    return m_file.is_open() ? m_file.data() : nullptr;
}

const char* DiskBackedBuffer::data() const {
    return m_file.is_open() ? m_file.const_data() : nullptr;
}

void DiskBackedBuffer::reserve(std::uint64_t size) {
    CLOUDPROVIDER_TRACE_FUNCTION(" size=", size);
    assert(size <= m_size && "a buffer never grows");
    if (size > m_reserved) {
        const auto step = std::clamp(m_reserved, kLeastStep, kLargestStep);
        const auto wholeSteps = (std::max(size, m_reserved + step) + kLeastStep - 1) / kLeastStep * kLeastStep;
        const auto reserved = std::min(wholeSteps, m_size);
        m_diskFile->updateFileSize(m_reserved, reserved);
        m_reserved = reserved;
    }
}

void DiskBackedBuffer::close() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    m_file.close();
}

std::unique_ptr<Buffer> DiskBackedBufferFactory::build(std::uint64_t size) {
    CLOUDPROVIDER_TRACE_FUNCTION(" size=", size);
    if (auto buffer = m_memory ? MemoryBuffer::tryToMake(m_memory, size) : nullptr) {
        return buffer;
    }
    return std::make_unique<DiskBackedBuffer>(size, m_room);
}

}  // namespace storage::cloudprovider
