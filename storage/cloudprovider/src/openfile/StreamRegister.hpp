// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/threads/Mutex.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>

namespace storage::cloudprovider {

/// When something was changed: how many write-backs had begun. What was changed at a point is stored once a write-back
/// has succeeded that began later.
using ChangePoint = std::uint64_t;

/// The streams of one open object: how many there are, whether ones that closed count on changes that are not stored
/// yet, and whether further ones may come. Threads: any; nothing here waits for a transfer but add, for the last
/// stream's write-back.
class StreamRegister {
public:
    /// What to do in the step in which the object retires; must not throw, nor call back.
    void onRetired(std::function<void()> action);

    /// Count a stream, once no write-back of the last one is running. False when the object has retired.
    bool add();

    /// Take a stream back. True when it was the last one and the object is to be written back: endWriteBack has to
    /// follow, whatever comes of it. Streams that are added wait for that.
    bool remove(std::optional<ChangePoint> lastChange);
    void endWriteBack();

    /// Retire if there is one stream and no other one counts on a change; tells whether. Nothing is written back then.
    bool abandon();

    /// Take no further streams. Those that are there go on.
    void retire();

    /// Retire, and have nothing written back any more, whoever counts on a change.
    void detach();

    ChangePoint changePoint() const noexcept { return m_storesBegun.load(); }

    /// A write-back begins: answers the point that everything changed before is behind.
    ChangePoint beginStore() noexcept { return ++m_storesBegun; }

    /// That write-back has succeeded.
    void endStore(ChangePoint begun);

private:
    void retireLocked() CLOUDPROVIDER_REQUIRES(m_mutex);

    std::atomic<ChangePoint> m_storesBegun{0};

    // Behind the stream gate in the lock order; m_retired takes the table of open objects under it.
    foundation::Mutex m_mutex;
    foundation::ConditionVariable m_writeBackEnded;
    std::function<void()> m_retired CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::uint64_t m_count CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
    bool m_isWritingBack CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
    bool m_isAbandoned CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;  // nothing is written back any more
    bool m_isRetired CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
    std::optional<ChangePoint> m_lastChangeOfClosed CLOUDPROVIDER_GUARDED_BY(m_mutex);
    ChangePoint m_storedBefore CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;  // what was changed at earlier points is stored
};

}  // namespace storage::cloudprovider
