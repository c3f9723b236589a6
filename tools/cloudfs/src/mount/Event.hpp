// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "local/FileDescriptor.hpp"

#include <chrono>
#include <csignal>
#include <optional>

namespace cloudfs::mount {

/// Something that happens once, and can be waited for with other things. Threads: any.
class Event {
public:
    Event();

    void happen() const noexcept;
    bool hasHappened() const noexcept;
    int descriptor() const noexcept { return m_descriptor.get(); }

private:
    FileDescriptor m_descriptor;
};

/// Has SIGINT, SIGTERM and SIGHUP wait for who takes them, as long as it lives. Threads that are started meanwhile do
/// not get them either. What is ignored stays ignored.
class SignalEvent {
public:
    SignalEvent();
    SignalEvent(const SignalEvent&) = delete;
    SignalEvent& operator=(const SignalEvent&) = delete;
    ~SignalEvent();

    /// Take one that has arrived; whether there was one.
    bool take() const noexcept;
    int descriptor() const noexcept { return m_descriptor.get(); }

private:
    sigset_t m_former{};
    FileDescriptor m_descriptor;
};

/// Wait until an event has happened (true), or a signal arrived, or that time has come, if any (false).
bool awaitEvent(const Event& event, const SignalEvent& signals,
                const std::optional<std::chrono::steady_clock::time_point>& until);

}  // namespace cloudfs::mount
