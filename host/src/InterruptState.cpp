// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/InterruptState.hpp>

#include <atomic>

namespace foundation {

namespace {

std::atomic<bool> g_isInterruptPending{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may only touch lock-free atomics");

}  // namespace

const char* OperationInterrupted::what() const noexcept {
    return "the operation was interrupted";
}

void utInterruptState::ThrowIfInterruptPending() {
    if (g_isInterruptPending.load()) {
        throw OperationInterrupted();
    }
}

void utInterruptState::RequestInterrupt() noexcept {
    g_isInterruptPending.store(true);
}

void utInterruptState::ClearInterrupt() noexcept {
    g_isInterruptPending.store(false);
}

}  // namespace foundation
