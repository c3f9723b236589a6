// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "threadSafety.hpp"

namespace foundation {

/// A mutex that many hold to read, or one to change, as Native does it; known to clang's analysis.
template <typename Native>
class CLOUDPROVIDER_CAPABILITY("shared mutex") SharedMutex {
public:
    SharedMutex() = default;
    SharedMutex(const SharedMutex&) = delete;
    SharedMutex& operator=(const SharedMutex&) = delete;

    void lock() CLOUDPROVIDER_ACQUIRE() { m_native.lock(); }
    void unlock() CLOUDPROVIDER_RELEASE() { m_native.unlock(); }
    void lockShared() CLOUDPROVIDER_ACQUIRE_SHARED() { m_native.lock_shared(); }
    void unlockShared() CLOUDPROVIDER_RELEASE_SHARED() { m_native.unlock_shared(); }

    /// Give up after that time, which is one of Native's; tells whether it was taken.
    template <typename Duration>
    bool tryLockSharedFor(Duration time) CLOUDPROVIDER_TRY_ACQUIRE_SHARED(true) {
        return m_native.try_lock_shared_for(time);
    }

private:
    Native m_native;
};

/// Holds a shared mutex together with others.
template <typename Native>
class CLOUDPROVIDER_SCOPED_CAPABILITY SharedLock {
public:
    explicit SharedLock(SharedMutex<Native>& mutex) CLOUDPROVIDER_ACQUIRE_SHARED(mutex) : m_mutex(mutex) {
        m_mutex.lockShared();
    }
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;
    ~SharedLock() CLOUDPROVIDER_RELEASE() { m_mutex.unlockShared(); }

private:
    SharedMutex<Native>& m_mutex;
};

/// Holds a shared mutex alone.
template <typename Native>
class CLOUDPROVIDER_SCOPED_CAPABILITY ExclusiveLock {
public:
    explicit ExclusiveLock(SharedMutex<Native>& mutex) CLOUDPROVIDER_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ExclusiveLock(const ExclusiveLock&) = delete;
    ExclusiveLock& operator=(const ExclusiveLock&) = delete;
    ~ExclusiveLock() CLOUDPROVIDER_RELEASE() { m_mutex.unlock(); }

private:
    SharedMutex<Native>& m_mutex;
};

}  // namespace foundation
