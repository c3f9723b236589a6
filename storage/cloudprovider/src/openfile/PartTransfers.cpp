// SPDX-License-Identifier: Apache-2.0
#include "openfile/PartTransfers.hpp"

#include "support/translateException.hpp"
#include "upload/MultipartUploadManager.hpp"

#include <algorithm>
#include <utility>

namespace storage::cloudprovider {

PartUpload::PartUpload(std::shared_ptr<OpenPartBuffer> part) : m_part(std::move(part)) {}

bool PartUpload::begin() {
    if (!m_part->openIfModified()) {
        return false;
    }
    auto hold = OpenPartHold::adopt(m_part);
    m_record = m_part->markUploading();
    if (m_record) {
        m_hold.emplace(std::move(hold));
    }
    return m_record.has_value();
}

void PartUpload::transfer(MultipartUploadManager& upload) {
    m_tag = upload.uploadPart(*m_record, m_part->data());
}

bool PartUpload::succeed() noexcept {
    m_part->recordUpload(m_record->Size, std::move(m_tag));
    return giveBack() && m_part->localDataVersion() == LocalDataVersion::NEW;
}

bool PartUpload::fail() noexcept {
    const bool wasChanged = m_part->markUploadFailed();
    giveBack();
    return wasChanged;
}

// Tells whether nobody has the part open any more: a stream that closed it before left it to us. Of a large gap no more
// zeros lie on the disk than are on their way.
bool PartUpload::giveBack() noexcept {
    bool isLast = false;
    try {
        isLast = m_hold->close();
        m_part->discardIfBlank();
    } catch (...) {
        traceCaughtException();
    }
    m_hold.reset();
    return isLast;
}

void sendPart(MultipartUploadManager& upload, const std::shared_ptr<OpenPartBuffer>& part) {
    if (part->size() != 0) {
        upload.asyncUploadPart(part->index(), std::make_unique<PartUpload>(part));
    }
}

void ReusedRuns::add(std::map<std::uint64_t, Run>::node_type run) noexcept {
    const foundation::MutexLock lock(m_mutex);
    m_runs.insert(std::move(run));
}

const ReusedRuns::Run* ReusedRuns::find(std::uint64_t index) const {
    const foundation::MutexLock lock(m_mutex);
    const auto next = m_runs.upper_bound(index);
    if (next == m_runs.begin()) {
        return nullptr;
    }
    const auto& run = std::prev(next)->second;
    return index < run.endIndex ? &run : nullptr;
}

RunReuse::RunReuse(std::vector<std::shared_ptr<OpenPartBuffer>> parts, std::shared_ptr<ReusedRuns> runs)
    : m_parts(std::move(parts)), m_runs(std::move(runs)) {}

bool RunReuse::begin() {
    m_run.clear();
    for (const auto& part : m_parts) {
        auto record = part->storedRecord();
        if (!record) {
            return false;  // it was changed meanwhile: the rest of the run is reused with other neighbours
        }
        m_run.push_back(std::move(*record));
    }
    return true;
}

void RunReuse::transfer(MultipartUploadManager& upload) {
    std::map<std::uint64_t, ReusedRuns::Run> answer;
    answer.emplace(m_run.front().Index, ReusedRuns::Run{m_run.back().Index + 1, upload.reusePart(m_run)});
    m_answer = answer.extract(answer.begin());
}

bool RunReuse::succeed() noexcept {
    m_runs->add(std::move(m_answer));
    return false;
}

bool RunReuse::fail() noexcept {
    return std::any_of(m_parts.begin(), m_parts.end(),
                       [](const auto& part) { return part->localDataVersion() != LocalDataVersion::CLOUD; });
}

}  // namespace storage::cloudprovider
