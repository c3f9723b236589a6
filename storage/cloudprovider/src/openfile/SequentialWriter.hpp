// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/OpenFileContext.hpp"
#include "context/TransferPool.hpp"
#include "openfile/OpenFileManager.hpp"
#include "openfile/ProviderStream.hpp"
#include "support/host.hpp"
#include "upload/MultipartUploadManager.hpp"
#include "upload/PartSizes.hpp"

#include <foundation/storage/provider/ByteStream.hpp>

#include <cstdint>
#include <ios>
#include <memory>

namespace storage::cloudprovider {

struct WrittenPart;
class SentParts;

/// Writes an object anew from its beginning to its end; see openSequentialWriter.
///
/// A full part is queued when there is a byte for the next one, after the queue was worked on until it has room: so
/// many parts are held as the pool has threads, one more that is queued, and the one that is being written.
class SequentialWriter : public host::ByteStream, public ProviderStream {
public:
    SequentialWriter(std::shared_ptr<OpenFileContext> context, std::shared_ptr<TransferPool> pool,
                     std::unique_ptr<OpenFileManager::ExclusiveHold> hold);

    /// Closes the stream; a failure is traced.
    ~SequentialWriter() override;

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

    void requireOpen() const;
    std::uint64_t append(const char* data, std::uint64_t count);
    void beginNextPart();
    std::shared_ptr<WrittenPart> makeNextPart() const;
    void queuePart();
    void storeFile();
    void cancel() noexcept;

    const std::shared_ptr<OpenFileContext> m_context;
    const std::shared_ptr<TransferPool> m_pool;  // kept alive here: no transfer owns it
    const std::shared_ptr<MultipartUploadManager> m_upload;
    const std::shared_ptr<SentParts> m_sent;
    const PartSizes m_partSizes;
    std::unique_ptr<OpenFileManager::ExclusiveHold> m_hold;  // empty when closed
    std::shared_ptr<WrittenPart> m_part;                     // the one that is being written; empty before the first
};

}  // namespace storage::cloudprovider
