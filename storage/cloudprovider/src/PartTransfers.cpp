// SPDX-License-Identifier: Apache-2.0
#include "PartTransfers.hpp"

#include <utility>

namespace storage::cloudprovider {

PartUpload::PartUpload(std::shared_ptr<OpenPartBuffer> part) : m_part(std::move(part)) {}

std::optional<PartInfo> PartUpload::begin() {
    if (!m_part->openIfModified()) {
        return std::nullopt;
    }
    auto hold = OpenPartHold::adopt(m_part);
    auto record = m_part->markUploading();
    if (record) {
        m_hold.emplace(std::move(hold));
    }
    return record;
}

const char* PartUpload::data() const {
    return std::as_const(*m_part).data();
}

void PartUpload::succeed(const PartInfo& record, std::string tag) noexcept {
    m_part->recordUpload(record.Size, std::move(tag));
    m_hold.reset();
}

bool PartUpload::fail() noexcept {
    const bool wasChanged = m_part->markUploadFailed();
    m_hold.reset();
    return wasChanged;
}

PartReuse::PartReuse(std::shared_ptr<OpenPartBuffer> part) : m_part(std::move(part)) {}

std::optional<PartInfo> PartReuse::begin() {
    return m_part->storedRecord();
}

const char* PartReuse::data() const {
    return nullptr;
}

void PartReuse::succeed(const PartInfo& record, std::string tag) noexcept {
    m_part->recordUpload(record.Size, std::move(tag));
}

bool PartReuse::fail() noexcept {
    return m_part->localDataVersion() != LocalDataVersion::CLOUD;
}

}  // namespace storage::cloudprovider
