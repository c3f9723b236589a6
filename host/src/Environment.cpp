// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/Environment.hpp>
#include <foundation/services/Text.hpp>

#include <cstdlib>

namespace foundation {

std::optional<std::u16string> getEnvironment(const std::u16string& name) {
    const char* value = std::getenv(toUtf8(name).c_str());
    if (value == nullptr) {
        return std::nullopt;
    }
    return toUtf16Lossy(value);
}

}  // namespace foundation
