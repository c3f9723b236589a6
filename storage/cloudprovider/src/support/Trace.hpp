// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/services/DiagnosticLogger.hpp>

#include <atomic>
#include <cstdint>
#include <ios>
#include <sstream>

/// Diagnostic records of the logger "storage::cloudprovider". While a severity is off, its records cost one bit test.
namespace storage::cloudprovider::trace {

/// Severities, one bit each in the logger's mask.
enum Severity : std::uint32_t { kArguments = 0x2, kCaughtException = 0x10, kEntry = 0x20, kExit = 0x40 };

/// The process's logger of this library, made on first use.
foundation::DiagnosticLogger& logger();

namespace detail {

// Points at a mask with all bits set until the logger is made, so that the test below needs no guard of its
// own: the first record that it lets through looks the logger up and tests again.
extern std::atomic<const std::atomic<std::uint32_t>*> g_mask;

inline bool mayBeWanted(std::uint32_t severity) noexcept {
    return (g_mask.load(std::memory_order_acquire)->load(std::memory_order_relaxed) & severity) != 0;
}

bool isWanted(std::uint32_t severity) noexcept;
void submit(std::uint32_t severity, const std::ostringstream& text) noexcept;
void prepare(std::ostream& stream);

}  // namespace detail

/// Whether records of that severity, or of one of several, are recorded now.
inline bool isWanted(std::uint32_t severity) noexcept {
    return __builtin_expect(static_cast<long>(detail::mayBeWanted(severity)), 0L) != 0 && detail::isWanted(severity);
}

/// Write one record of the pieces, one after the other. A piece that cannot be formatted loses the record,
/// and nothing else: tracing never fails an operation.
template <typename... Pieces>
[[gnu::noinline, gnu::cold]] void write(std::uint32_t severity, const Pieces&... pieces) noexcept {
    try {
        std::ostringstream text;
        detail::prepare(text);
        (text << ... << pieces);
        detail::submit(severity, text);
    } catch (...) {  // NOLINT(bugprone-empty-catch): there is nowhere to report it
    }
}

/// Traces a function from entry to exit, and nests the records in between.
class FunctionScope {
public:
    /// Traces nothing until begin.
    FunctionScope() = default;
    FunctionScope(const FunctionScope&) = delete;
    FunctionScope& operator=(const FunctionScope&) = delete;
    ~FunctionScope() {
        if (__builtin_expect(static_cast<long>(m_signature != nullptr), 0L) != 0) {
            leave();
        }
    }

    void begin(const char* file, int line, const char* signature) noexcept {
        if (isWanted(kEntry)) {
            enter(file, line, signature);
        }
    }

private:
    void enter(const char* file, int line, const char* signature) noexcept;
    void leave() noexcept;

    const char* m_signature = nullptr;  // set while enabled
    int m_uncaughtAtEntry = 0;
};

}  // namespace storage::cloudprovider::trace

/// Write one record of any pieces; they are evaluated only when the severity is wanted.
#define CLOUDPROVIDER_TRACE(severity, ...)                                 \
    do {                                                                   \
        if (::storage::cloudprovider::trace::isWanted(severity)) {         \
            ::storage::cloudprovider::trace::write(severity, __VA_ARGS__); \
        }                                                                  \
    } while (false)

/// Trace the enclosing function, and its arguments if there are any, as in CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
/// the first statement of every operation. While both are off that is one test.
#define CLOUDPROVIDER_TRACE_FUNCTION(...)                                                         \
    ::storage::cloudprovider::trace::FunctionScope traceScope;                                    \
    if (::storage::cloudprovider::trace::isWanted(::storage::cloudprovider::trace::kEntry |       \
                                                  ::storage::cloudprovider::trace::kArguments)) { \
        traceScope.begin(__FILE__, __LINE__, __PRETTY_FUNCTION__);                                \
        __VA_OPT__(CLOUDPROVIDER_TRACE_VALUES(__VA_ARGS__);)                                      \
    }                                                                                             \
    static_assert(true)

/// Trace values that an operation comes to: its result, as in CLOUDPROVIDER_TRACE_VALUES("bytesRead", '=', bytesRead).
#define CLOUDPROVIDER_TRACE_VALUES(...) CLOUDPROVIDER_TRACE(::storage::cloudprovider::trace::kArguments, __VA_ARGS__)
