// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

namespace storage::cloudprovider {

/// Runs an action once: when told to, where its failure is thrown, else on destruction, where it is traced.
class ScopeGuard {
public:
    explicit ScopeGuard(std::function<void()> action);
    ScopeGuard(const ScopeGuard&) = delete;
    ScopeGuard& operator=(const ScopeGuard&) = delete;
    ~ScopeGuard();

    void run();

private:
    std::function<void()> m_action;  // empty when it was run
};

}  // namespace storage::cloudprovider
