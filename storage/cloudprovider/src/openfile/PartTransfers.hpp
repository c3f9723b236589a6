// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "openfile/OpenPartHold.hpp"
#include "upload/PartTransfer.hpp"

#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/PartInfo.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace storage::cloudprovider {

/// Sends a changed part. It counts as one more opener, so the bytes stay mapped during the client's call even if the
/// streams that have the part open close it meanwhile.
class PartUpload final : public PartTransfer {
public:
    explicit PartUpload(std::shared_ptr<OpenPartBuffer> part);

    bool begin() override;
    void transfer(MultipartUploadManager& upload) override;
    bool succeed() noexcept override;
    bool fail() noexcept override;

private:
    bool giveBack() noexcept;

    const std::shared_ptr<OpenPartBuffer> m_part;
    std::optional<OpenPartHold> m_hold;
    std::optional<PartInfo> m_record;
    std::string m_tag;
};

/// Queue the sending of a part, unless it has no bytes: stores refuse such parts. Throws what
/// asyncUploadPart throws.
void sendPart(MultipartUploadManager& upload, const std::shared_ptr<OpenPartBuffer>& part);

/// The runs of parts that a write-back took from the stored object. Threads: any.
class ReusedRuns {
public:
    /// Note a run: the index after its last part, and the records that stand for it.
    struct Run {
        std::uint64_t endIndex;
        std::vector<PartInfo> records;
    };
    void add(std::map<std::uint64_t, Run>::node_type run) noexcept;

    /// The run that a part lies in; nothing when it was not reused.
    const Run* find(std::uint64_t index) const;

private:
    mutable foundation::Mutex m_mutex;  // a leaf
    // By the index of the first part; a run stays once it is there.
    std::map<std::uint64_t, Run> m_runs CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

/// Takes neighbouring unchanged parts from the stored object.
class RunReuse final : public PartTransfer {
public:
    /// parts: in order, not empty.
    RunReuse(std::vector<std::shared_ptr<OpenPartBuffer>> parts, std::shared_ptr<ReusedRuns> runs);

    bool begin() override;
    void transfer(MultipartUploadManager& upload) override;
    bool succeed() noexcept override;
    bool fail() noexcept override;

private:
    const std::vector<std::shared_ptr<OpenPartBuffer>> m_parts;
    const std::shared_ptr<ReusedRuns> m_runs;
    std::vector<PartInfo> m_run;
    std::map<std::uint64_t, ReusedRuns::Run>::node_type m_answer;
};

}  // namespace storage::cloudprovider
