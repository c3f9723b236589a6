// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/InterruptScope.hpp>

#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/InterruptState.hpp>

#include <utility>

namespace foundation {

namespace {

thread_local std::shared_ptr<const InterruptSource> t_source;

}  // namespace

InterruptSource::InterruptSource(std::shared_ptr<const InterruptSource> parent) noexcept
    : m_parent(std::move(parent)) {}

bool InterruptSource::isRequested() const noexcept {
    return m_isRequested.load() || (m_parent && m_parent->isRequested());
}

InterruptScope::InterruptScope(std::shared_ptr<const InterruptSource> source) noexcept
    : m_outer(std::exchange(t_source, std::move(source))) {}

InterruptScope::~InterruptScope() {
    t_source = std::move(m_outer);
}

std::shared_ptr<const InterruptSource> InterruptScope::current() noexcept {
    return t_source;
}

void InterruptScope::throwIfRequested() {
    if (t_source && t_source->isRequested()) {
        throw OperationInterrupted();
    }
}

void throwIfInterrupted() {
    InterruptScope::throwIfRequested();
    if (isMainExecutionContext()) {
        utInterruptState::ThrowIfInterruptPending();
    }
}

}  // namespace foundation
