// SPDX-License-Identifier: Apache-2.0
#include "openfile/SequentialWriter.hpp"

#include "buffers/Buffer.hpp"
#include "support/Trace.hpp"
#include "support/host.hpp"
#include "support/saturatingAdd.hpp"
#include "support/translateException.hpp"
#include "upload/ObjectWriter.hpp"

#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/PartInfo.hpp>

#include <boost/numeric/conversion/cast.hpp>

#include <algorithm>
#include <cstring>
#include <list>
#include <utility>
#include <vector>

namespace storage::cloudprovider {

using host::ErrorCode;
using host::ExceptionContext;

/// A part and its bytes.
struct WrittenPart {
    PartInfo info;
    std::unique_ptr<Buffer> buffer;
};

/// The records of what was sent. Threads: any.
class SentParts {
public:
    void add(std::list<PartInfo>& record) noexcept {
        const foundation::MutexLock lock(m_mutex);
        m_records.splice(m_records.end(), record);
    }

    std::vector<PartInfo> inOrder() const {
        const foundation::MutexLock lock(m_mutex);
        std::vector<PartInfo> records(m_records.begin(), m_records.end());
        std::sort(records.begin(), records.end(),
                  [](const PartInfo& left, const PartInfo& right) { return left.Index < right.Index; });
        return records;
    }

private:
    mutable foundation::Mutex m_mutex;  // a leaf
    std::list<PartInfo> m_records CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

namespace {

// Sends a part that nobody writes to any more. Its bytes go with the task.
class WrittenPartUpload final : public PartTransfer {
public:
    WrittenPartUpload(std::shared_ptr<WrittenPart> part, std::shared_ptr<SentParts> sent)
        : m_part(std::move(part)), m_sent(std::move(sent)), m_record{m_part->info} {}

    bool begin() override { return true; }
    void transfer(MultipartUploadManager& upload) override {
        m_record.front().Tag = upload.uploadPart(m_part->info, std::as_const(*m_part->buffer).data());
    }
    bool succeed() noexcept override {
        m_sent->add(m_record);
        return false;
    }
    bool fail() noexcept override { return false; }

private:
    const std::shared_ptr<WrittenPart> m_part;
    const std::shared_ptr<SentParts> m_sent;
    std::list<PartInfo> m_record;  // a node, which changes lists without failing
};

[[noreturn]] void refuse(const char* reason) {
    throw host::ByteStreamWriteFailure(ErrorCode::Unsupported, ExceptionContext(reason));
}

}  // namespace

SequentialWriter::SequentialWriter(std::shared_ptr<OpenFileContext> context, std::shared_ptr<TransferPool> pool,
                                   std::unique_ptr<OpenFileManager::ExclusiveHold> hold)
    : m_context(std::move(context)),
      m_pool(std::move(pool)),
      m_upload(std::make_shared<MultipartUploadManager>(m_context, m_pool)),
      m_sent(std::make_shared<SentParts>()),
      m_partSizes(m_context->partSize, m_context->client->limits()),
      m_hold(std::move(hold)) {
    CLOUDPROVIDER_TRACE_FUNCTION();
}

SequentialWriter::~SequentialWriter() {
    try {
        SequentialWriter::doClose();
    } catch (...) {
        traceCaughtException();
    }
}

bool SequentialWriter::abandon() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    if (const auto hold = std::move(m_hold)) {
        m_part.reset();
        cancel();
    }
    return true;
}

void SequentialWriter::store() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    refuse("a file that is written sequentially is stored by closing it");
}

void SequentialWriter::storeAtClose() noexcept {}

void SequentialWriter::resize(std::uint64_t /*size*/) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    refuse("a file that is written sequentially has the size that was written");
}

void SequentialWriter::detach() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    refuse("a file that is written sequentially keeps its name");
}

std::int64_t SequentialWriter::doRead(char* /*buffer*/, std::int64_t /*count*/) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    throw host::ByteStreamReadFailure(ErrorCode::PermissionDenied,
                                      ExceptionContext("the stream is open for writing only"));
}

std::streampos SequentialWriter::doSeek(std::int64_t /*offset*/, std::ios_base::seekdir /*way*/) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    throw host::ByteStreamSeekFailure(ErrorCode::Unsupported, ExceptionContext("the stream writes sequentially"));
}

// What was taken stays taken: part of it may have been sent. So a failure after the first byte is left to the next
// call.
std::int64_t SequentialWriter::doWrite(const char* data, std::int64_t count) {
    CLOUDPROVIDER_TRACE_FUNCTION(" n=", count);
    const auto wanted = boost::numeric_cast<std::uint64_t>(count);
    requireOpen();
    const auto size = m_part ? m_part->info.Offset + m_part->info.Size : 0;
    m_partSizes.checkFileSize(saturatingAdd(size, wanted), m_context->key);
    std::uint64_t total = 0;
    try {
        while (total < wanted) {
            total += append(data + total, wanted - total);
        }
    } catch (...) {
        if (total == 0) {
            throw;
        }
        traceCaughtException();
    }
    const std::int64_t bytesWritten = total == 0 ? -1 : static_cast<std::int64_t>(total);
    CLOUDPROVIDER_TRACE_VALUES("bytesWritten", '=', bytesWritten);
    return bytesWritten;
}

void SequentialWriter::doClose() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const auto hold = std::move(m_hold);
    if (!hold) {
        return;
    }
    try {
        storeFile();
    } catch (...) {
        m_part.reset();
        cancel();
        throw;
    }
    m_part.reset();
}

void SequentialWriter::requireOpen() const {
    if (!m_hold) {
        throw host::ByteStreamWriteFailure(ErrorCode::Unknown, ExceptionContext("the stream is closed"));
    }
}

// As much as the part takes that is being written.
std::uint64_t SequentialWriter::append(const char* data, std::uint64_t count) {
    if (!m_part || m_part->info.Size == m_part->buffer->size()) {
        beginNextPart();
    }
    auto& size = m_part->info.Size;
    const auto taken = std::min(count, m_part->buffer->size() - size);
    m_part->buffer->reserve(size + taken);
    std::memcpy(m_part->buffer->data() + size, data, taken);
    size += taken;
    return taken;
}

void SequentialWriter::beginNextPart() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    m_upload->makeRoom();
    auto next = makeNextPart();
    if (m_part) {
        queuePart();
    }
    m_part = std::move(next);
}

std::shared_ptr<WrittenPart> SequentialWriter::makeNextPart() const {
    PartInfo info;
    if (m_part) {
        info.Index = m_part->info.Index + 1;
        info.Offset = m_part->info.Offset + m_part->info.Size;
    }
    auto buffer = m_context->bufferFactory->build(m_partSizes.capacityOf(info.Index, info.Offset, m_context->key));
    buffer->open();
    return std::make_shared<WrittenPart>(WrittenPart{std::move(info), std::move(buffer)});
}

void SequentialWriter::queuePart() {
    m_upload->queuePart(m_part->info.Index, std::make_unique<WrittenPartUpload>(m_part, m_sent));
    m_part.reset();  // the task alone has the bytes now
}

void SequentialWriter::storeFile() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    ObjectWriter writer(m_context);
    if (!m_part || m_part->info.Index == 0) {
        const char* const data = m_part ? std::as_const(*m_part->buffer).data() : "";
        writer.put(data, m_part ? m_part->info.Size : 0, ObjectWriter::Bytes::Stay);
        return;
    }
    if (m_part->info.Size != 0) {  // there was no room for its first byte
        queuePart();
    }
    m_upload->joinUploads();
    writer.complete(*m_upload, m_sent->inOrder());
}

void SequentialWriter::cancel() noexcept {
    try {
        m_upload->cancel();
    } catch (...) {
        traceCaughtException();
    }
}

}  // namespace storage::cloudprovider
