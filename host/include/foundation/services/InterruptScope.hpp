// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>

#include <atomic>
#include <memory>

namespace foundation {

/// A request to stop what is done for one caller, beside the process's one flag (see InterruptState.hpp): a server ends
/// one client's request with it, and no other. Threads: any; request may be called by a signal handler, too.
class FOUNDATION_HOST_EXPORT InterruptSource {
public:
    /// parent: one whose request counts for this one, too; may be empty.
    explicit InterruptSource(std::shared_ptr<const InterruptSource> parent = nullptr) noexcept;

    /// Ask what runs in a scope of this source to stop at its next check, for good.
    void request() noexcept { m_isRequested.store(true); }

    /// Whether it was requested, or its parent was.
    bool isRequested() const noexcept;

private:
    const std::shared_ptr<const InterruptSource> m_parent;
    std::atomic<bool> m_isRequested{false};
};

/// Has what the calling thread does look at a source for as long as the scope lives, in place of the source of an outer
/// scope; an empty one: at none. Threads that work for this one look at it, too. A thread that is in no scope looks at
/// none.
class FOUNDATION_HOST_EXPORT InterruptScope {
public:
    /// source: may be empty.
    explicit InterruptScope(std::shared_ptr<const InterruptSource> source) noexcept;
    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;
    ~InterruptScope();

    /// The source that the calling thread looks at; may be empty.
    static std::shared_ptr<const InterruptSource> current() noexcept;

    /// Throw OperationInterrupted when that source was requested.
    static void throwIfRequested();

private:
    std::shared_ptr<const InterruptSource> m_outer;
};

/// Throw OperationInterrupted when the thread's source was requested, or when the process's interrupt is pending and
/// the thread runs in the host's main execution context: what other threads do is not what the user interrupted.
FOUNDATION_HOST_EXPORT void throwIfInterrupted();

}  // namespace foundation
