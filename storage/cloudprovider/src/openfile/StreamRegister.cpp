// SPDX-License-Identifier: Apache-2.0
#include "openfile/StreamRegister.hpp"

#include <algorithm>
#include <cassert>
#include <utility>

namespace storage::cloudprovider {

void StreamRegister::onRetired(std::function<void()> action) {
    const foundation::MutexLock lock(m_mutex);
    m_retired = std::move(action);
}

bool StreamRegister::add() {
    foundation::MutexLock lock(m_mutex);
    m_writeBackEnded.wait(lock, [this]() CLOUDPROVIDER_REQUIRES(m_mutex) { return !m_isWritingBack; });
    if (m_isRetired) {
        return false;
    }
    ++m_count;
    return true;
}

bool StreamRegister::remove(std::optional<ChangePoint> lastChange) {
    const foundation::MutexLock lock(m_mutex);
    assert(m_count != 0 && "a stream is taken back once");
    assert(!m_isWritingBack && "there is no stream while the last one's changes are written back");
    m_lastChangeOfClosed = std::max(m_lastChangeOfClosed, lastChange);
    --m_count;
    m_isWritingBack = m_count == 0 && !m_isAbandoned;
    return m_isWritingBack;
}

void StreamRegister::endWriteBack() {
    const foundation::MutexLock lock(m_mutex);
    m_isWritingBack = false;
    m_writeBackEnded.notifyAll();
}

bool StreamRegister::abandon() {
    const foundation::MutexLock lock(m_mutex);
    const bool isCountedOn = !m_isAbandoned && m_lastChangeOfClosed && *m_lastChangeOfClosed >= m_storedBefore;
    if (m_count != 1 || isCountedOn) {
        return false;
    }
    m_isAbandoned = true;
    retireLocked();
    return true;
}

void StreamRegister::retire() {
    const foundation::MutexLock lock(m_mutex);
    retireLocked();
}

void StreamRegister::detach() {
    const foundation::MutexLock lock(m_mutex);
    m_isAbandoned = true;
    retireLocked();
}

void StreamRegister::endStore(ChangePoint begun) {
    const foundation::MutexLock lock(m_mutex);
    m_storedBefore = std::max(m_storedBefore, begun);
}

// Under the lock: who finds the object retired must not find it in the table of open objects any more.
void StreamRegister::retireLocked() {
    if (!std::exchange(m_isRetired, true) && m_retired) {
        m_retired();
    }
}

}  // namespace storage::cloudprovider
