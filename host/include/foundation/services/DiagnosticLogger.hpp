// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace foundation {

/// A named source of diagnostic records, which go to the Boost.Log core; the host adds the sinks.
///
/// A record carries the attributes Channel (std::string, the logger's name), Severity (std::uint32_t, one
/// bit), Indent (unsigned int, see Indentation) and Message (std::string). Loggers live until the process
/// ends. Threads: any.
class FOUNDATION_HOST_EXPORT DiagnosticLogger {
public:
    /// Nesting depth of the calling thread's records; each thread has its own, shared by all loggers.
    class FOUNDATION_HOST_EXPORT Indentation {
    public:
        static void increase() noexcept;       ///< one level deeper
        static void decrease() noexcept;       ///< one level less deep, at most back to 0
        static unsigned int depth() noexcept;  ///< levels; 0 at first
    };

    /// Answer the process's logger of that name, made with mask 0 when it is asked for first.
    static DiagnosticLogger& get(const std::string& name);

    DiagnosticLogger(const DiagnosticLogger&) = delete;
    DiagnosticLogger& operator=(const DiagnosticLogger&) = delete;

    /// Choose the severities to record: a record is wanted when its bit is set. 0 switches the logger off.
    void setMask(std::uint32_t mask) noexcept { m_mask.store(mask, std::memory_order_relaxed); }
    /// The severities that are recorded.
    std::uint32_t getMask() const noexcept { return m_mask.load(std::memory_order_relaxed); }

    /// The mask itself, for callers to whom even a call is too dear while the logger is off.
    const std::atomic<std::uint32_t>& mask() const noexcept { return m_mask; }

    /// The name that it was made with.
    const std::string& name() const noexcept { return m_name; }

    /// Hand one record to the Boost.Log core. The mask is not asked: the caller has done so before it
    /// formatted the text. Throws what a sink throws.
    void submit(std::uint32_t severity, std::string_view message);

private:
    explicit DiagnosticLogger(std::string name);

    const std::string m_name;
    std::atomic<std::uint32_t> m_mask{0};
};

}  // namespace foundation
