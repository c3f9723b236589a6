// SPDX-License-Identifier: Apache-2.0
#include "mount/Event.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace cloudfs::mount {

namespace {

FileDescriptor checked(int descriptor) {
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "waiting for events");
    }
    return FileDescriptor(descriptor);
}

bool isReadable(int descriptor) {
    pollfd entry{descriptor, POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
}

sigset_t endingSignals() {
    sigset_t signals{};
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {
            sigaddset(&signals, signal);
        }
    }
    return signals;
}

}  // namespace

Event::Event() : m_descriptor(checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {}

void Event::happen() const noexcept {
    ::eventfd_write(m_descriptor.get(), 1);
}

bool Event::hasHappened() const noexcept {
    return isReadable(m_descriptor.get());
}

SignalEvent::SignalEvent() {
    const auto signals = endingSignals();
    pthread_sigmask(SIG_BLOCK, &signals, &m_former);
    m_descriptor = checked(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

SignalEvent::~SignalEvent() {
    pthread_sigmask(SIG_SETMASK, &m_former, nullptr);
}

bool SignalEvent::take() const noexcept {
    signalfd_siginfo signal{};
    return ::read(m_descriptor.get(), &signal, sizeof(signal)) > 0;
}

bool awaitEvent(const Event& event, const SignalEvent& signals,
                const std::optional<std::chrono::steady_clock::time_point>& until) {
    while (!event.hasHappened()) {
        int timeout = -1;
        if (until) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                return false;
            }
            timeout = static_cast<int>(std::min<std::int64_t>(left.count(), INT32_MAX));
        }
        std::array<pollfd, 2> entries{{{event.descriptor(), POLLIN, 0}, {signals.descriptor(), POLLIN, 0}}};
        if (::poll(entries.data(), entries.size(), timeout) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "waiting for events");
        }
        if (signals.take()) {
            return false;
        }
    }
    return true;
}

}  // namespace cloudfs::mount
