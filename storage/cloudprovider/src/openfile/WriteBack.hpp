// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/OpenFileContext.hpp"
#include "openfile/OpenPartBuffer.hpp"
#include "openfile/PartTransfers.hpp"
#include "upload/MultipartUploadManager.hpp"
#include "upload/ObjectWriter.hpp"

#include <cstdint>
#include <memory>
#include <vector>

namespace storage::cloudprovider {

/// Makes the stored object what an open file's parts are: sends what is NEW, has the store copy what is CLOUD, and
/// completes the upload; a file of one part is put as a whole. What was not changed is not written.
///
/// Parts are all those of the file, in order. Nobody sends or resizes any meanwhile; their bytes may change, and what
/// changes after it was sent stays NEW.
/// Errors   what the client and the buffers throw; ObjectReplacedException when somebody else replaced the object. Then
///          what was sent is NEW again.
/// Threads  one at a time.
class WriteBack {
public:
    using Part = std::shared_ptr<OpenPartBuffer>;

    /// Whether the file was cut off since it was stored: the object may be longer than the parts are.
    enum class Cut : std::uint8_t { No, Yes };

    WriteBack(std::shared_ptr<OpenFileContext> context, std::shared_ptr<MultipartUploadManager> uploadManager);

    void run(const std::vector<Part>& parts, Cut cut, ObjectWriter::Bytes bytes);

    /// See ObjectWriter::settle.
    bool settle() { return m_objectWriter.settle(); }

    /// Give up what was sent. Each of the parts has to forget it, too.
    void cancelUpload() noexcept;

private:
    bool isPutAsWhole(const std::vector<Part>& parts, Cut cut) const;
    void flushSinglePartFile(const Part& part, ObjectWriter::Bytes bytes);
    void flushMultiPartFile(const std::vector<Part>& parts, Cut cut);
    void transferMissing(const std::vector<Part>& parts, const std::shared_ptr<ReusedRuns>& runs);
    void scheduleReuse(const std::vector<Part>& parts, const std::shared_ptr<ReusedRuns>& runs);
    void scheduleRun(std::vector<Part> run, const std::shared_ptr<ReusedRuns>& runs);

    const std::shared_ptr<OpenFileContext> m_context;
    const std::shared_ptr<MultipartUploadManager> m_uploadManager;
    ObjectWriter m_objectWriter;
};

}  // namespace storage::cloudprovider
