// SPDX-License-Identifier: Apache-2.0
#include "commands/Patience.hpp"

#include "terminal/interrupts.hpp"

#include <algorithm>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ErrorCoded;

namespace {

// About what storing a small file takes.
constexpr std::chrono::milliseconds kFirstPause(10);
constexpr std::chrono::milliseconds kLongestPause(1500);

}  // namespace

Patience::Patience(std::chrono::milliseconds limit) : m_limit(limit), m_longestPause(kFirstPause) {}

bool Patience::mayBeginAgain(const ErrorCoded& failure) {
    const auto now = Clock::now();
    m_deadline = m_deadline.value_or(now + m_limit);
    return failure.getErrorCode() == ErrorCode::InUse && now < *m_deadline;
}

// Any length up to the longest one: those who wait about as long as each other would meet again.
void Patience::pause() {
    using Microseconds = std::chrono::microseconds;
    std::uniform_int_distribution<Microseconds::rep> choice(0, m_longestPause.count());
    const auto left = std::chrono::duration_cast<Microseconds>(*m_deadline - Clock::now());
    pauseFor(std::min(Microseconds(choice(m_random)), left));
    m_longestPause = std::min<Microseconds>(2 * m_longestPause, kLongestPause);
}

}  // namespace cloudfs::commands
