// SPDX-License-Identifier: Apache-2.0
#include "commands/RepeatedEdit.hpp"

#include "local/LocalSource.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/interrupts.hpp"

#include <foundation/storage/provider/Exception.hpp>

#include <algorithm>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ErrorCoded;

namespace {

// About what storing a small file takes.
constexpr std::chrono::milliseconds kFirstPause(10);
constexpr std::chrono::milliseconds kLongestPause(1500);

}  // namespace

RepeatedEdit::RepeatedEdit(LocalSource& source, std::chrono::milliseconds limit)
    : m_source(source), m_limit(limit), m_longestPause(kFirstPause) {}

void RepeatedEdit::run(const Attempt& attempt) {
    while (!succeeds(attempt)) {
        pause();
        m_source.rewind();
    }
}

// False when the edit is to begin again. Failures of this machine's files have no code: another writer of the store
// has no part in them.
bool RepeatedEdit::succeeds(const Attempt& attempt) {
    try {
        ProgressBar progress(m_source.size());
        attempt(progress);
        return true;
    } catch (const ErrorCoded& failure) {
        if (failure.getErrorCode() != ErrorCode::InUse || isOver()) {
            throw;
        }
        return false;
    }
}

bool RepeatedEdit::isOver() {
    const auto now = Clock::now();
    m_deadline = m_deadline.value_or(now + m_limit);
    return now >= *m_deadline;
}

// Any length up to the longest one: writers that wait about as long as each other would meet again.
void RepeatedEdit::pause() {
    using Microseconds = std::chrono::microseconds;
    std::uniform_int_distribution<Microseconds::rep> choice(0, m_longestPause.count());
    const auto left = std::chrono::duration_cast<Microseconds>(*m_deadline - Clock::now());
    pauseFor(std::min(Microseconds(choice(m_random)), left));
    m_longestPause = std::min<Microseconds>(2 * m_longestPause, kLongestPause);
}

}  // namespace cloudfs::commands
