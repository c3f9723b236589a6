// SPDX-License-Identifier: Apache-2.0
#include "Conditions.hpp"

namespace storage::cloudprovider::s3 {

Fields Conditions::toHeaders(const ExpectedObject& expected) const {
    if (expected.isAnything()) {
        return {};
    }
    if (expected.isAbsent()) {
        return {{"If-None-Match", "*"}};
    }
    const auto* const quote = m_isUnquoted ? "" : "\"";
    return {{"If-Match", quote + expected.getVersion() + quote}};
}

}  // namespace storage::cloudprovider::s3
