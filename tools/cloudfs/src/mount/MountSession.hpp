// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mount/Event.hpp"
#include "mount/FileSystem.hpp"
#include "mount/MountOptions.hpp"
#include "mount/fuse.hpp"
#include "mount/fuseOperations.hpp"

#include <foundation/services/InterruptScope.hpp>

#include <chrono>
#include <memory>
#include <optional>
#include <thread>

namespace cloudfs::mount {

/// A store that is mounted, from mounting to unmounting. SIGINT, SIGTERM and SIGHUP are blocked meanwhile, and waited
/// for. One thread.
class MountSession {
public:
    /// Mount. files and options outlive this. Errors: Failure.
    MountSession(FileSystem& files, const MountOptions& options);
    MountSession(const MountSession&) = delete;
    MountSession& operator=(const MountSession&) = delete;
    ~MountSession();

    /// Answer requests until somebody unmounts, or one of those signals arrives; then unmount, and try to store what is
    /// not stored for the time that the options give. Another signal ends that. What stays unsaved is kept on this
    /// machine, and named.
    ///
    /// Result   whether everything is stored.
    bool run();

    /// Whether something that was begun does not end, although it was interrupted: the process cannot end in good
    /// order.
    bool isStuck() const noexcept { return m_isStuck; }

private:
    using Clock = std::chrono::steady_clock;

    void answerRequests();
    void awaitEnd(const Event& ended, std::thread& thread);
    void flushKernel();
    void endLoop();
    void storeEverything();
    void storeUntilInterrupted();
    bool keepUnsaved() const;

    FileSystem& m_files;
    const MountOptions& m_options;
    const std::shared_ptr<foundation::InterruptSource> m_all;
    RequestContext m_context;
    const SignalEvent m_signals;
    fuse_session* m_session = nullptr;
    std::thread m_loop;
    Event m_loopEnded;
    std::optional<Clock::time_point> m_deadline;
    bool m_isStuck = false;
};

}  // namespace cloudfs::mount
