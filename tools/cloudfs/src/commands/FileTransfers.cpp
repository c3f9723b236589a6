// SPDX-License-Identifier: Apache-2.0
#include "commands/FileTransfers.hpp"

#include "commands/describe.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"
#include "terminal/interrupts.hpp"

#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/InterruptState.hpp>

#include <algorithm>
#include <iostream>
#include <thread>
#include <utility>

namespace cloudfs::commands {

namespace {

std::string textOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& exception) {
        return describe(exception);
    }
}

}  // namespace

FileTransfers::FileTransfers(std::size_t atOnce) : m_atOnce(atOnce) {}

void FileTransfers::addFailure(std::exception_ptr failure) {
    const foundation::MutexLock lock(m_mutex);
    m_failures.push_back(std::move(failure));
}

void FileTransfers::addFailureUnlessInterrupted(std::exception_ptr failure) {
    if (interruptingSignal()) {
        std::rethrow_exception(failure);
    }
    addFailure(std::move(failure));
}

void FileTransfers::run(std::size_t count, ProgressBar& progress, const std::function<void(std::size_t)>& job) {
    {
        const foundation::MutexLock lock(m_mutex);
        m_next = 0;
        m_end = count;
    }
    std::vector<std::thread> threads;
    const auto helpers = std::min(m_atOnce, count);
    try {
        for (std::size_t i = 1; i < helpers; ++i) {
            threads.emplace_back([&] {
                foundation::setMainExecutionContext(true);  // the user may interrupt it
                work(job, progress);
            });
        }
    } catch (const std::system_error&) {
        // The system gives no more threads: those that are there do it.
    }
    work(job, progress);
    for (auto& thread : threads) {
        thread.join();
    }
    const foundation::MutexLock lock(m_mutex);
    if (m_interrupt) {
        std::rethrow_exception(m_interrupt);
    }
}

// A provider may put an interrupt into terms of its own, so the signal is asked for, not only the exception.
void FileTransfers::work(const std::function<void(std::size_t)>& job, ProgressBar& progress) {
    for (std::size_t index = 0; takeJob(index);) {
        try {
            foundation::utInterruptState::ThrowIfInterruptPending();
            job(index);
            progress.finishFile();
        } catch (...) {
            if (interruptingSignal()) {
                endAll(std::current_exception());
                return;
            }
            progress.finishFile();
            const foundation::MutexLock lock(m_mutex);
            m_failures.push_back(std::current_exception());
        }
    }
}

bool FileTransfers::takeJob(std::size_t& index) {
    const foundation::MutexLock lock(m_mutex);
    index = m_next;
    m_next = std::min(m_next + 1, m_end);
    return index < m_end;
}

void FileTransfers::endAll(std::exception_ptr interrupt) {
    const foundation::MutexLock lock(m_mutex);
    m_interrupt = std::move(interrupt);
    m_next = m_end;
}

std::size_t FileTransfers::failureCount() const {
    const foundation::MutexLock lock(m_mutex);
    return m_failures.size();
}

void FileTransfers::finish() {
    const foundation::MutexLock lock(m_mutex);
    if (m_failures.empty()) {
        return;
    }
    if (m_failures.size() == 1) {
        std::rethrow_exception(m_failures.front());
    }
    for (const auto& failure : m_failures) {
        std::cerr << textOf(failure) << '\n';
    }
    throw PartFailure(m_failures.size());
}

}  // namespace cloudfs::commands
