// SPDX-License-Identifier: Apache-2.0
#include "mount/MountSession.hpp"

#include "mount/UnsavedFiles.hpp"
#include "mount/errnoOf.hpp"
#include "mount/log.hpp"
#include "terminal/failures.hpp"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

// How a mount ends:
//
//   a signal, or somebody unmounts
//     -> what the kernel has of mapped files is written to us     (not when somebody has unmounted: it has done so)
//     -> requests end, and the mount
//     -> what is not stored is stored, again and again
//     -> what could not be stored is kept on this machine
//
// All but the last step wait for the store at most. When the time is over, or a second signal arrives, everything that
// waits for the store is interrupted, and gets some seconds to end. What does not end even so is left alone.

namespace cloudfs::mount {

using foundation::storage::provider::ErrorCode;

namespace {

// So many requests at once: as each may wait for the store, a thread is always left for those that interrupt them.
constexpr unsigned kMostThreads = 64;

// For what was interrupted to end: libcurl looks once a second.
constexpr std::chrono::seconds kGrace(10);

constexpr std::chrono::milliseconds kWakeInterval(20);

// Between two attempts to store.
constexpr std::chrono::milliseconds kPause(500);

// What somebody else replaced is not stored by trying, but a store that is busy says the same.
constexpr int kMostConflicts = 3;

void logOfLibrary(fuse_log_level /*level*/, const char* format, va_list arguments) {
    constexpr std::size_t kLongest = 1024;
    std::array<char, kLongest> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    std::string line(text.data());
    while (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    logLine(line);
}

// In an option's value a comma ends the option, unless it is escaped.
std::string escapeOption(const std::string& value) {
    std::string escaped;
    for (const char character : value) {
        if (character == ',' || character == '\\') {
            escaped.push_back('\\');
        }
        escaped.push_back(character);
    }
    return escaped;
}

std::string mountOptionsOf(const MountOptions& options) {
    std::string text = "default_permissions,nodev,nosuid,subtype=cloudfs,fsname=" + escapeOption(options.name);
    text.append(options.isReadOnly ? ",ro" : "");
    text.append(options.allowsOthers ? ",allow_other" : "");
    return text;
}

// Ends a wait of the thread that it is sent to, and nothing else.
void ignoreSignal(int /*signal*/) {}

}  // namespace

MountSession::MountSession(FileSystem& files, const MountOptions& options)
    : m_files(files),
      m_options(options),
      m_all(std::make_shared<foundation::InterruptSource>()),
      m_context{files, options, m_all} {
    fuse_set_log_func(logOfLibrary);
    std::string program = "cloudfs";
    std::string flag = "-o";
    auto text = mountOptionsOf(options);
    std::array<char*, 3> arguments{program.data(), flag.data(), text.data()};
    fuse_args args{static_cast<int>(arguments.size()), arguments.data(), 0};
    m_session = fuse_session_new(&args, &fuseOperations(), sizeof(fuse_lowlevel_ops), &m_context);
    fuse_opt_free_args(&args);
    if (m_session == nullptr) {
        throw Failure(ErrorCode::Unknown, options.mountPoint, "FUSE does not take the options");
    }
    if (fuse_session_mount(m_session, options.mountPoint.c_str()) != 0) {
        fuse_session_destroy(m_session);
        throw Failure(ErrorCode::Unknown, options.mountPoint, "cannot be mounted on");
    }
}

MountSession::~MountSession() {
    if (!m_isStuck) {
        fuse_session_unmount(m_session);
        fuse_session_destroy(m_session);
    }
}

bool MountSession::run() {
    m_loop = std::thread([this] { answerRequests(); });
    logLine("mounted " + m_options.name + " at " + m_options.mountPoint);
    const bool isUnmounted = awaitEvent(m_loopEnded, m_signals, std::nullopt);
    m_deadline = Clock::now() + m_options.unmountTimeout;
    if (!isUnmounted) {
        flushKernel();
    }
    endLoop();
    if (!m_isStuck) {
        fuse_session_unmount(m_session);
    }
    storeEverything();
    return keepUnsaved();
}

void MountSession::answerRequests() {
    auto* const config = fuse_loop_cfg_create();
    fuse_loop_cfg_set_max_threads(config, kMostThreads);
    fuse_session_loop_mt(m_session, config);
    fuse_loop_cfg_destroy(config);
    m_loopEnded.happen();
}

// Joins the thread, unless it is stuck.
void MountSession::awaitEnd(const Event& ended, std::thread& thread) {
    if (!m_all->isRequested() && !awaitEvent(ended, m_signals, m_deadline)) {
        m_all->request();
    }
    const auto last = Clock::now() + kGrace;
    while (!awaitEvent(ended, m_signals, last) && Clock::now() < last) {
    }
    if (ended.hasHappened()) {
        thread.join();
    } else {
        m_isStuck = true;
        thread.detach();  // the process is about to end
    }
}

// Requests are still answered meanwhile. syncfs would not do: it may return before the pages are with us.
void MountSession::flushKernel() {
    const auto ended = std::make_shared<Event>();
    std::thread flusher([this, ended] {
        for (const auto& file : m_files.written()) {
            const auto path = m_options.mountPoint + file->path().text();
            const FileDescriptor opened(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
            if (opened.get() >= 0) {
                ::fdatasync(opened.get());  // what fails is met again
            }
        }
        ended->happen();
    });
    awaitEnd(*ended, flusher);
}

// The loop sleeps until a signal wakes it, and may be just about to.
void MountSession::endLoop() {
    struct sigaction wake {};
    wake.sa_handler = ignoreSignal;
    sigaction(SIGUSR1, &wake, nullptr);
    const auto isOver = [this] { return m_loopEnded.hasHappened(); };
    fuse_session_exit(m_session);
    std::thread waker([isOver, until = *m_deadline + kGrace, thread = m_loop.native_handle()] {
        while (!isOver() && Clock::now() < until) {
            pthread_kill(thread, SIGUSR1);
            std::this_thread::sleep_for(kWakeInterval);
        }
    });
    awaitEnd(m_loopEnded, m_loop);
    waker.join();
}

void MountSession::storeEverything() {
    if (m_isStuck || m_files.unsaved().empty()) {
        return;
    }
    logLine("storing what is not stored yet");
    const auto ended = std::make_shared<Event>();
    std::thread storer([this, ended] {
        storeUntilInterrupted();
        ended->happen();
    });
    awaitEnd(*ended, storer);
}

void MountSession::storeUntilInterrupted() {
    const foundation::InterruptScope scope(m_all);
    std::map<const OpenFile*, int> conflicts;
    for (bool isToBeTried = true; isToBeTried && !m_all->isRequested();) {
        isToBeTried = false;
        for (const auto& file : m_files.unsaved()) {
            try {
                file->store();
            } catch (const std::exception& failure) {
                logFailure(file->path(), failure);
                const bool isConflict = errnoOf(failure) == EBUSY;
                isToBeTried = isToBeTried || !isConflict || ++conflicts[file.get()] < kMostConflicts;
            }
        }
        if (isToBeTried) {
            std::this_thread::sleep_for(kPause);
        }
    }
}

bool MountSession::keepUnsaved() const {
    UnsavedFiles unsaved(m_options.unsavedFolder);
    bool isStored = true;
    for (const auto& file : m_files.unsaved()) {
        try {
            if (unsaved.keep(*file)) {
                isStored = false;
                logLine(file->path().text() + ": not stored; what was written is in " + unsaved.place());
            }
        } catch (const std::exception& failure) {
            isStored = false;
            logLine(file->path().text() + ": not stored, and what was written is lost: " + failure.what());
        }
    }
    return isStored;
}

}  // namespace cloudfs::mount
