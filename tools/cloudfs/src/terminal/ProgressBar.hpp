// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace cloudfs {

/// Shows on standard error how far a transfer has come, if that is a terminal and the transfer takes longer
/// than half a second; takes itself away at the end. Writing it never fails.
class ProgressBar {
public:
    enum class Visibility { WhenTerminal, Never };

    /// total in bytes, nothing when nobody knows.
    explicit ProgressBar(std::optional<std::uint64_t> total, Visibility visibility = Visibility::WhenTerminal);
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    ~ProgressBar();

    /// Count bytes that are done.
    void advance(std::uint64_t bytes);

    /// Say that the store is being waited for, which may take a while and cannot be measured.
    void announceStoring();

private:
    using Clock = std::chrono::steady_clock;

    void draw(std::string_view remark);

    const std::optional<std::uint64_t> m_total;
    const bool m_isWanted;
    const Clock::time_point m_start = Clock::now();
    Clock::time_point m_nextDraw;
    std::uint64_t m_done = 0;
    bool m_isVisible = false;
};

}  // namespace cloudfs
