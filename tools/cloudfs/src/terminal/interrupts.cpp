// SPDX-License-Identifier: Apache-2.0
#include "terminal/interrupts.hpp"

#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/InterruptState.hpp>

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

namespace cloudfs {

namespace {

constexpr std::array kWatched{SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t g_signal = 0;

// The first signal asks for an orderly end. Some waits cannot be interrupted, so the second ends the process; it
// arrives when this handler, which blocks it, has returned.
void requestInterrupt(int signal) {
    if (g_signal != 0) {
        struct sigaction standard {};
        standard.sa_handler = SIG_DFL;
        sigaction(signal, &standard, nullptr);
        raise(signal);
        return;
    }
    g_signal = signal;
    foundation::utInterruptState::RequestInterrupt();
}

sigset_t watchedSignals() {
    sigset_t signals{};
    sigemptyset(&signals);
    for (const int signal : kWatched) {
        sigaddset(&signals, signal);
    }
    return signals;
}

void watch(int signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN) {
        return;
    }
    action = {};
    action.sa_handler = requestInterrupt;
    action.sa_mask = watchedSignals();
    action.sa_flags = 0;  // no SA_RESTART: a blocked call must return
    sigaction(signal, &action, nullptr);
}

// Keeps the watched signals away, but from a ppoll that is given mask().
class SignalBlock {
public:
    SignalBlock() {
        const auto signals = watchedSignals();
        pthread_sigmask(SIG_BLOCK, &signals, &m_mask);
    }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;
    ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &m_mask, nullptr); }

    const sigset_t& mask() const { return m_mask; }

private:
    sigset_t m_mask{};
};

}  // namespace

void watchInterrupts() {
    foundation::setMainExecutionContext(true);
    for (const int signal : kWatched) {
        watch(signal);
    }
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, nullptr);
}

std::optional<int> interruptingSignal() {
    const int signal = g_signal;
    return signal == 0 ? std::nullopt : std::optional<int>(signal);
}

// Between the check and the wait no signal may slip through, else it would be noticed only when the
// descriptor becomes ready, perhaps never.
void waitUntilReady(int descriptor, short events) {
    const SignalBlock block;
    pollfd entry{descriptor, events, 0};
    do {
        foundation::utInterruptState::ThrowIfInterruptPending();
    } while (::ppoll(&entry, 1, nullptr, &block.mask()) < 0 && errno == EINTR);
}

void pauseFor(std::chrono::nanoseconds duration) {
    using Clock = std::chrono::steady_clock;
    const SignalBlock block;
    const auto end = Clock::now() + duration;
    timespec timeout{};
    do {
        foundation::utInterruptState::ThrowIfInterruptPending();
        const auto left = std::max<std::chrono::nanoseconds>(end - Clock::now(), std::chrono::nanoseconds(0));
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        timeout = {seconds.count(), (left - seconds).count()};
    } while (::ppoll(nullptr, 0, &timeout, &block.mask()) < 0 && errno == EINTR);
}

}  // namespace cloudfs
