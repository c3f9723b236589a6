// SPDX-License-Identifier: Apache-2.0
#include "terminal/ProgressBar.hpp"

#include "terminal/formatting.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <string>

namespace cloudfs {

namespace {

constexpr std::chrono::milliseconds kDelay(500);
constexpr std::chrono::milliseconds kInterval(100);
constexpr std::size_t kDefaultColumns = 80;
constexpr std::size_t kMaxBarWidth = 40;
constexpr std::size_t kMinBarWidth = 5;
constexpr std::uint64_t kNoticeableSize = 1024 * 1024;
constexpr std::string_view kClearLine = "\r\033[K";

void show(const std::string& text) {
    // A terminal that has gone is no reason to fail.
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text.data(), text.size());
}

std::size_t terminalColumns() {
    winsize size{};
    const bool isKnown = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : kDefaultColumns;
}

std::string bar(double share, std::size_t width) {
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(width));
    return "[" + std::string(filled, '#') + std::string(width - filled, ' ') + "] ";
}

// What is done, of how much, how fast and how much longer.
std::string numbers(std::uint64_t done, std::optional<std::uint64_t> total, double seconds) {
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    std::string text = formatSize(done);
    if (total) {
        text += " of " + formatSize(*total);
    }
    text += ", " + formatSize(static_cast<std::uint64_t>(rate)) + "/s";
    if (total && *total > done && rate > 0) {
        text += ", " + formatDuration(static_cast<double>(*total - done) / rate) + " left";
    }
    return text;
}

}  // namespace

ProgressBar::ProgressBar(std::optional<std::uint64_t> total, Visibility visibility)
    : m_total(total),
      m_isWanted(visibility == Visibility::WhenTerminal && ::isatty(STDERR_FILENO) == 1),
      m_nextDraw(m_start + kDelay) {}

ProgressBar::ProgressBar(std::uint64_t total, std::size_t files)
    : m_total(total), m_files(files), m_isWanted(::isatty(STDERR_FILENO) == 1), m_nextDraw(m_start + kDelay) {}

ProgressBar::~ProgressBar() {
    if (m_isVisible) {
        show(std::string(kClearLine));
    }
}

void ProgressBar::advance(std::uint64_t bytes) {
    const foundation::MutexLock lock(m_mutex);
    m_done += bytes;
    drawIfDue();
}

void ProgressBar::retreat(std::uint64_t bytes) {
    const foundation::MutexLock lock(m_mutex);
    m_done -= std::min(bytes, m_done);
}

void ProgressBar::finishFile() {
    const foundation::MutexLock lock(m_mutex);
    ++m_filesDone;
    drawIfDue();
}

void ProgressBar::announceStoring() {
    announce(", storing...");
}

void ProgressBar::announceRemoval() {
    announce(", removing the source...");
}

void ProgressBar::announce(std::string_view remark) {
    const foundation::MutexLock lock(m_mutex);
    if (m_files != 1) {
        return;
    }
    if (m_isVisible || (m_isWanted && m_done >= kNoticeableSize)) {
        draw(remark);
    }
}

void ProgressBar::drawIfDue() {
    if (m_isWanted && Clock::now() >= m_nextDraw) {
        draw("");
    }
}

void ProgressBar::draw(std::string_view remark) {
    const auto now = Clock::now();
    m_nextDraw = now + kInterval;
    m_isVisible = true;
    auto text = numbers(m_done, m_total, std::chrono::duration<double>(now - m_start).count());
    if (m_files != 1) {
        text.insert(0, std::to_string(m_filesDone) + " of " + std::to_string(m_files) + " files, ");
    }
    text.append(remark);
    constexpr std::size_t kRoomAroundBar = 4;  // brackets, blank, and the last column, which may wrap
    const auto columns = terminalColumns();
    if (m_total && columns >= text.size() + kRoomAroundBar + kMinBarWidth) {
        const auto share = *m_total == 0 ? 1.0 : static_cast<double>(m_done) / static_cast<double>(*m_total);
        text.insert(0, bar(std::min(share, 1.0), std::min(columns - text.size() - kRoomAroundBar, kMaxBarWidth)));
    }
    show(std::string(kClearLine) + text.substr(0, columns - 1));
}

}  // namespace cloudfs
