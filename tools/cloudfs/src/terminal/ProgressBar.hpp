// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/threads/Mutex.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace cloudfs {

/// Shows on standard error how far a transfer has come, of one file or of many at once, if that is a terminal and the
/// transfer takes longer than half a second; takes itself away at the end. Writing it never fails. Threads: any.
class ProgressBar {
public:
    enum class Visibility { WhenTerminal, Never };

    /// total in bytes, nothing when nobody knows.
    explicit ProgressBar(std::optional<std::uint64_t> total, Visibility visibility = Visibility::WhenTerminal);

    /// A transfer of so many files, which has total bytes.
    ProgressBar(std::uint64_t total, std::size_t files);
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    ~ProgressBar();

    /// Count bytes that are done.
    void advance(std::uint64_t bytes);

    /// Take back bytes that have to be transferred again.
    void retreat(std::uint64_t bytes);

    /// Count a file that is done, or has failed.
    void finishFile();

    /// Say that the store is being waited for, which may take a while and cannot be measured. Of one of many files
    /// nothing is said.
    void announceStoring();

    /// Say that what was copied is being removed.
    void announceRemoval();

private:
    using Clock = std::chrono::steady_clock;

    void drawIfDue() CLOUDPROVIDER_REQUIRES(m_mutex);
    void announce(std::string_view remark);
    void draw(std::string_view remark) CLOUDPROVIDER_REQUIRES(m_mutex);

    const std::optional<std::uint64_t> m_total;
    const std::size_t m_files = 1;
    const bool m_isWanted;
    const Clock::time_point m_start = Clock::now();

    // Guards the terminal's line, too.
    foundation::Mutex m_mutex;
    Clock::time_point m_nextDraw CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::uint64_t m_done CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
    std::size_t m_filesDone CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
    bool m_isVisible CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
};

}  // namespace cloudfs
