// SPDX-License-Identifier: Apache-2.0
#include "ObjectMemory.hpp"

#include <utility>

namespace storage::cloudprovider::s3 {

void ObjectMemory::see(const std::string& key, Seen seen) {
    const foundation::MutexLock lock(m_mutex);
    const auto former = m_seen.find(key);
    seen.IsOurs = seen.IsOurs || (former && former->IsOurs && former->Version == seen.Version);
    m_seen.put(key, std::move(seen));
}

std::optional<ObjectMemory::Seen> ObjectMemory::lastSeen(const std::string& key) const {
    const foundation::MutexLock lock(m_mutex);
    return m_seen.find(key);
}

void ObjectMemory::forget(const std::string& key) {
    const foundation::MutexLock lock(m_mutex);
    m_seen.erase(key);
}

void ObjectMemory::beginUpload(const std::string& writeId, Upload upload) {
    const foundation::MutexLock lock(m_mutex);
    m_uploads.put(writeId, std::move(upload));
}

std::optional<ObjectMemory::Upload> ObjectMemory::endUpload(const std::string& writeId) {
    const foundation::MutexLock lock(m_mutex);
    auto upload = m_uploads.find(writeId);
    m_uploads.erase(writeId);
    return upload;
}

void ObjectMemory::beginCompletion(const std::string& key, Completion completion) {
    const foundation::MutexLock lock(m_mutex);
    m_completions.put(key, std::move(completion));
}

void ObjectMemory::settleCompletion(const std::string& key) {
    const foundation::MutexLock lock(m_mutex);
    m_completions.erase(key);
}

std::optional<ObjectMemory::Completion> ObjectMemory::unsettledCompletion(const std::string& key) const {
    const foundation::MutexLock lock(m_mutex);
    return m_completions.find(key);
}

}  // namespace storage::cloudprovider::s3
