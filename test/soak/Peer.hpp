// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Lap.hpp"

#include <sys/types.h>

namespace soak {

/// A lap of a second process of this program. One thread.
class Peer {
public:
    /// Starts it. onTick stays here.
    explicit Peer(const Lap& lap);
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    /// Kills it if it has not ended.
    ~Peer();

    /// Let it die in the middle of things. Again does nothing.
    void kill();
    bool wasKilled() const { return m_wasKilled; }
    /// Wait for its end. Throws Finding when it was not killed and found something itself, which it tells.
    void wait();

    /// What main does when it is started so: the lap that the arguments describe, and the program's exit status.
    static bool isMeant(int count, char** arguments);
    static int runAs(char** arguments);

private:
    pid_t m_process = -1;
    bool m_wasKilled = false;
};

}  // namespace soak
