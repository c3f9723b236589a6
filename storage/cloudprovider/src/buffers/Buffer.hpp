// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

namespace storage::cloudprovider {

/// A block of bytes of fixed size that can be mapped into memory. Who shares one between threads says how.
class Buffer {
public:
    Buffer() = default;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    /// In bytes.
    virtual std::uint64_t size() const = 0;

    /// Map the bytes; what was written before is still there.
    virtual void open() = 0;

    virtual bool isOpen() const = 0;

    /// The first byte; null while nothing is mapped.
    virtual char* data() = 0;
    virtual const char* data() const = 0;

    /// Make room for the first size bytes, at most size(): only those may be touched. What is mapped stays where it is,
    /// and bytes that have room already may be used meanwhile. Where there is no room for more, UnknownErrorException,
    /// and nothing has changed.
    virtual void reserve(std::uint64_t size) = 0;

    /// Take the mapping away; the bytes stay.
    virtual void close() = 0;

    virtual ~Buffer() = default;
};

/// Makes buffers.
class BufferFactory {
public:
    BufferFactory() = default;
    BufferFactory(const BufferFactory&) = delete;
    BufferFactory& operator=(const BufferFactory&) = delete;

    /// Make an unmapped buffer of size bytes, all of them zero. Room has to be made for them before they are touched.
    virtual std::unique_ptr<Buffer> build(std::uint64_t size) = 0;

    virtual ~BufferFactory() = default;
};

}  // namespace storage::cloudprovider
