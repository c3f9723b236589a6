// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "threadSafety.hpp"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace foundation {

/// std::mutex, known to clang's analysis. Taken by MutexLock only.
class CLOUDPROVIDER_CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

private:
    friend class MutexLock;

    std::mutex m_mutex;
};

/// Holds a mutex from its construction to its end, but between unlock and lock.
class CLOUDPROVIDER_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) CLOUDPROVIDER_ACQUIRE(mutex) : m_lock(mutex.m_mutex) {}
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;
    ~MutexLock() CLOUDPROVIDER_RELEASE() = default;

    void lock() CLOUDPROVIDER_ACQUIRE() { m_lock.lock(); }
    void unlock() CLOUDPROVIDER_RELEASE() { m_lock.unlock(); }

private:
    friend class ConditionVariable;

    std::unique_lock<std::mutex> m_lock;
};

/// std::condition_variable over a MutexLock. A predicate is called with the mutex held, which clang has to be told:
/// [this]() CLOUDPROVIDER_REQUIRES(m_mutex) { return m_isReady; }.
class ConditionVariable {
public:
    void notifyOne() noexcept { m_condition.notify_one(); }
    void notifyAll() noexcept { m_condition.notify_all(); }

    /// Let the mutex go until notified, or woken for no reason.
    void wait(MutexLock& lock) { m_condition.wait(lock.m_lock); }

    /// Let the mutex go until the predicate holds.
    template <typename Predicate>
    void wait(MutexLock& lock, Predicate predicate) {
        m_condition.wait(lock.m_lock, std::move(predicate));
    }

    /// The same, for at most that time, or until that time; tells whether the predicate holds.
    template <typename Rep, typename Period, typename Predicate>
    bool waitFor(MutexLock& lock, std::chrono::duration<Rep, Period> time, Predicate predicate) {
        return m_condition.wait_for(lock.m_lock, time, std::move(predicate));
    }
    template <typename Clock, typename Duration, typename Predicate>
    bool waitUntil(MutexLock& lock, std::chrono::time_point<Clock, Duration> time, Predicate predicate) {
        return m_condition.wait_until(lock.m_lock, time, std::move(predicate));
    }

private:
    std::condition_variable m_condition;
};

}  // namespace foundation
