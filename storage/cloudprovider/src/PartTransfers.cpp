// SPDX-License-Identifier: Apache-2.0
#include "PartTransfers.hpp"

#include "translateException.hpp"

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

bool PartUpload::succeed(const PartInfo& record, std::string tag) noexcept {
    m_part->recordUpload(record.Size, std::move(tag));
    return giveBack() && m_part->localDataVersion() == LocalDataVersion::NEW;
}

bool PartUpload::fail() noexcept {
    const bool wasChanged = m_part->markUploadFailed();
    giveBack();
    return wasChanged;
}

// Tells whether nobody has the part open any more: a stream that closed it before left it to us.
bool PartUpload::giveBack() noexcept {
    bool isLast = false;
    try {
        isLast = m_hold->close();
    } catch (...) {
        traceCaughtException();
    }
    m_hold.reset();
    return isLast;
}

PartReuse::PartReuse(std::shared_ptr<OpenPartBuffer> part) : m_part(std::move(part)) {}

std::optional<PartInfo> PartReuse::begin() {
    return m_part->storedRecord();
}

const char* PartReuse::data() const {
    return nullptr;
}

bool PartReuse::succeed(const PartInfo& record, std::string tag) noexcept {
    m_part->recordUpload(record.Size, std::move(tag));
    return false;
}

bool PartReuse::fail() noexcept {
    return m_part->localDataVersion() != LocalDataVersion::CLOUD;
}

}  // namespace storage::cloudprovider
