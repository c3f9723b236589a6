// SPDX-License-Identifier: Apache-2.0
#include "EditedVersion.hpp"

#include <utility>

namespace storage::cloudprovider {

std::string EditedVersion::get() const {
    const std::lock_guard lock(m_mutex);
    return m_expected.getVersion();
}

ExpectedObject EditedVersion::expected() const {
    const std::lock_guard lock(m_mutex);
    return m_expected;
}

void EditedVersion::set(ExpectedObject expected) {
    const std::lock_guard lock(m_mutex);
    m_expected = std::move(expected);
}

}  // namespace storage::cloudprovider
