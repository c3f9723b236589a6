// SPDX-License-Identifier: Apache-2.0
#include "DiskBackedBufferFactory.hpp"

#include "Trace.hpp"
#include "translateException.hpp"

#include <foundation/services/Files.hpp>
#include <storage/cloudprovider/CloudException.hpp>

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <new>

namespace storage::cloudprovider {

using foundation::storage::provider::ExceptionContext;

namespace {

// The smallest file that can be mapped.
constexpr std::uint64_t kMinFileSize = 1;

[[noreturn]] void throwCurrentAsUnknownError() {
    throw UnknownErrorException(ExceptionContext("no temporary file: " + describeCurrentException()));
}

boost::filesystem::path createFile() {
    try {
        return foundation::createTemporaryFile("cloudprovider-");
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        throwCurrentAsUnknownError();
    }
}

}  // namespace

namespace detail {

DiskFile::DiskFile(std::uint64_t sizeInBytes) : m_path(createFile()) {
    try {
        updateFileSize(sizeInBytes);
    } catch (...) {
        remove();
        throw;
    }
}

DiskFile::~DiskFile() {
    remove();
}

void DiskFile::updateFileSize(std::uint64_t newSizeInBytes) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" newSizeInBytes=", newSizeInBytes);
    try {
        const auto size = std::max(newSizeInBytes, kMinFileSize);
        boost::filesystem::resize_file(m_path, size);
        // A sparse file would meet a full disk as a signal, on the first touch of a mapped page.
        foundation::reserveBlocks(m_path, size);
    } catch (...) {
        throwCurrentAsUnknownError();
    }
}

void DiskFile::remove() noexcept {
    try {
        foundation::removeFile(m_path);
    } catch (...) {
        CLOUDPROVIDER_TRACE(trace::kCaughtException, "Failed to delete DiskFile ", m_path.native());
        traceCaughtException();
    }
}

}  // namespace detail

DiskBackedBuffer::DiskBackedBuffer(std::uint64_t size)
    : m_size(size), m_diskFile(std::make_unique<detail::DiskFile>(size)) {}

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
    params.length = std::max(m_size, kMinFileSize);
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

void DiskBackedBuffer::close() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    m_file.close();
}

std::unique_ptr<Buffer> DiskBackedBufferFactory::build(std::uint64_t size) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" size=", size);
    return std::make_unique<DiskBackedBuffer>(size);
}

}  // namespace storage::cloudprovider
