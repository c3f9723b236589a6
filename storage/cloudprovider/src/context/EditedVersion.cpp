// SPDX-License-Identifier: Apache-2.0
#include "context/EditedVersion.hpp"

#include <utility>

namespace storage::cloudprovider {

EditedVersion::EditedVersion(bool storeMayTell) : m_storeMayTell(storeMayTell) {}

std::string EditedVersion::get() const {
    const foundation::MutexLock lock(m_mutex);
    return m_expected.getVersion();
}

ExpectedObject EditedVersion::expected() const {
    const foundation::MutexLock lock(m_mutex);
    return m_expected;
}

bool EditedVersion::mayBeTold() const {
    const foundation::MutexLock lock(m_mutex);
    return m_storeMayTell;
}

void EditedVersion::replace(const ExpectedObject& expected) {
    auto replaced = expected;
    const foundation::MutexLock lock(m_mutex);
    m_expected = std::move(replaced);
}

void EditedVersion::editOf(std::optional<std::string> version) {
    const foundation::MutexLock lock(m_mutex);
    m_storeMayTell = m_storeMayTell && !(version && version->empty());
    m_expected = version ? ExpectedObject::version(std::move(*version)) : ExpectedObject::absent();
}

void EditedVersion::detach() {
    const foundation::MutexLock lock(m_mutex);
    m_isDetached = true;
}

bool EditedVersion::isDetached() const {
    const foundation::MutexLock lock(m_mutex);
    return m_isDetached;
}

}  // namespace storage::cloudprovider
