// SPDX-License-Identifier: Apache-2.0
#include "support/ScopeGuard.hpp"

#include "support/translateException.hpp"

#include <utility>

namespace storage::cloudprovider {

ScopeGuard::ScopeGuard(std::function<void()> action) : m_action(std::move(action)) {}

ScopeGuard::~ScopeGuard() {
    try {
        run();
    } catch (...) {
        traceCaughtException();
    }
}

void ScopeGuard::run() {
    if (const auto action = std::exchange(m_action, nullptr)) {
        action();
    }
}

}  // namespace storage::cloudprovider
