// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/InterruptScope.hpp>
#include <foundation/threads/Mutex.hpp>

#include <chrono>
#include <memory>
#include <utility>

namespace storage::cloudprovider {

using foundation::throwIfInterrupted;

/// How often waiting looks at interrupts.
inline constexpr std::chrono::milliseconds kInterruptInterval(100);

/// Puts a thread of a pool into the execution context of whoever it works for.
class CallersContext {
public:
    CallersContext(bool isMain, std::shared_ptr<const foundation::InterruptSource> interrupts) noexcept
        : m_scope(std::move(interrupts)) {
        foundation::setMainExecutionContext(isMain);
    }
    CallersContext(const CallersContext&) = delete;
    CallersContext& operator=(const CallersContext&) = delete;
    ~CallersContext() { foundation::setMainExecutionContext(false); }

private:
    const foundation::InterruptScope m_scope;
};

/// Wait as condition.wait does, but throw OperationInterrupted when the thread's own source is requested. The host's
/// flag does not end it: streams do not look at that.
template <typename Predicate>
void waitInScope(foundation::ConditionVariable& condition, foundation::MutexLock& lock, Predicate isOver) {
    if (!foundation::InterruptScope::current()) {
        condition.wait(lock, isOver);
        return;
    }
    while (!condition.waitFor(lock, kInterruptInterval, isOver)) {
        foundation::InterruptScope::throwIfRequested();
    }
}

}  // namespace storage::cloudprovider
