// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "openfile/OpenFileByteStream.hpp"
#include "openfile/ProviderStream.hpp"
#include "support/host.hpp"

#include <foundation/storage/provider/ByteStream.hpp>

#include <cstdint>
#include <ios>
#include <memory>

namespace storage::cloudprovider {

/// Forwards to a stream, but refuses to write. Used like the stream it owns.
class ReadOnlyByteStream : public host::ByteStream, public ProviderStream {
public:
    explicit ReadOnlyByteStream(std::unique_ptr<OpenFileByteStream> stream);
    ~ReadOnlyByteStream() override;

    bool abandon() override;
    void store() override;
    void storeAtClose() noexcept override;
    void resize(std::uint64_t size) override;
    void detach() override;

private:
    std::int64_t doRead(char* buffer, std::int64_t count) override;
    std::int64_t doWrite(const char* data, std::int64_t count) override;
    std::streampos doSeek(std::int64_t offset, std::ios_base::seekdir way) override;
    void doClose() override;

    const std::unique_ptr<OpenFileByteStream> m_stream;
};

/// Forwards to a stream, but refuses to read. Used like the stream it owns.
class WriteOnlyByteStream : public host::ByteStream, public ProviderStream {
public:
    explicit WriteOnlyByteStream(std::unique_ptr<OpenFileByteStream> stream);
    ~WriteOnlyByteStream() override;

    bool abandon() override;
    void store() override;
    void storeAtClose() noexcept override;
    void resize(std::uint64_t size) override;
    void detach() override;

private:
    std::int64_t doRead(char* buffer, std::int64_t count) override;
    std::int64_t doWrite(const char* data, std::int64_t count) override;
    std::streampos doSeek(std::int64_t offset, std::ios_base::seekdir way) override;
    void doClose() override;

    const std::unique_ptr<OpenFileByteStream> m_stream;
};

}  // namespace storage::cloudprovider
