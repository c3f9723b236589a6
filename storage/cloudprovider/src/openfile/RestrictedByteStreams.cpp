// SPDX-License-Identifier: Apache-2.0
#include "openfile/RestrictedByteStreams.hpp"

#include "support/Trace.hpp"
#include "support/host.hpp"

#include <utility>

namespace storage::cloudprovider {

namespace {

[[noreturn]] void refuseToWrite() {
    throw host::ByteStreamWriteFailure(host::ErrorCode::PermissionDenied,
                                       host::ExceptionContext("the stream is open for reading only"));
}

}  // namespace

ReadOnlyByteStream::ReadOnlyByteStream(std::unique_ptr<OpenFileByteStream> stream) : m_stream(std::move(stream)) {}

ReadOnlyByteStream::~ReadOnlyByteStream() = default;

bool ReadOnlyByteStream::abandon() {
    return m_stream->abandon();
}

void ReadOnlyByteStream::store() {
    m_stream->requireOpen();
}

void ReadOnlyByteStream::storeAtClose() noexcept {}

void ReadOnlyByteStream::resize(std::uint64_t /*size*/) {
    refuseToWrite();
}

void ReadOnlyByteStream::detach() {
    m_stream->detach();
}

std::int64_t ReadOnlyByteStream::doRead(char* buffer, std::int64_t count) {
    return m_stream->read(buffer, count);
}

std::int64_t ReadOnlyByteStream::doWrite(const char* /*data*/, std::int64_t /*count*/) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    refuseToWrite();
}

std::streampos ReadOnlyByteStream::doSeek(std::int64_t offset, std::ios_base::seekdir way) {
    return m_stream->seek(offset, way);
}

void ReadOnlyByteStream::doClose() {
    m_stream->close();
}

WriteOnlyByteStream::WriteOnlyByteStream(std::unique_ptr<OpenFileByteStream> stream) : m_stream(std::move(stream)) {}

WriteOnlyByteStream::~WriteOnlyByteStream() = default;

bool WriteOnlyByteStream::abandon() {
    return m_stream->abandon();
}

void WriteOnlyByteStream::store() {
    m_stream->store();
}

void WriteOnlyByteStream::storeAtClose() noexcept {
    m_stream->storeAtClose();
}

void WriteOnlyByteStream::resize(std::uint64_t size) {
    m_stream->resize(size);
}

void WriteOnlyByteStream::detach() {
    m_stream->detach();
}

std::int64_t WriteOnlyByteStream::doRead(char* /*buffer*/, std::int64_t /*count*/) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    throw host::ByteStreamReadFailure(host::ErrorCode::PermissionDenied,
                                      host::ExceptionContext("the stream is open for writing only"));
}

std::int64_t WriteOnlyByteStream::doWrite(const char* data, std::int64_t count) {
    return m_stream->write(data, count);
}

std::streampos WriteOnlyByteStream::doSeek(std::int64_t offset, std::ios_base::seekdir way) {
    return m_stream->seek(offset, way);
}

void WriteOnlyByteStream::doClose() {
    m_stream->close();
}

}  // namespace storage::cloudprovider
