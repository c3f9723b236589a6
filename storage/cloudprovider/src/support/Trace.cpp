// SPDX-License-Identifier: Apache-2.0
#include "support/Trace.hpp"

#include <exception>
#include <iomanip>

namespace storage::cloudprovider::trace {

namespace {

constinit std::atomic<std::uint32_t> g_everything{~std::uint32_t{0}};

}  // namespace

namespace detail {

constinit std::atomic<const std::atomic<std::uint32_t>*> g_mask{&g_everything};

bool isWanted(std::uint32_t severity) noexcept {
    try {
        return (logger().getMask() & severity) != 0;
    } catch (...) {  // no logger could be made: there is nowhere to report it
        return false;
    }
}

void submit(std::uint32_t severity, const std::ostringstream& text) noexcept {
    try {
        logger().submit(severity, text.str());
    } catch (...) {  // NOLINT(bugprone-empty-catch): a sink's failure must not become the operation's
    }
}

void prepare(std::ostream& stream) {
    stream << std::dec << std::fixed << std::boolalpha << std::setprecision(6) << std::setfill(' ');
}

}  // namespace detail

foundation::DiagnosticLogger& logger() {
    static foundation::DiagnosticLogger& instance = [&]() -> foundation::DiagnosticLogger& {
        auto& made = foundation::DiagnosticLogger::get("storage::cloudprovider");
        detail::g_mask.store(&made.mask(), std::memory_order_release);
        return made;
    }();
    return instance;
}

void FunctionScope::enter(const char* file, int line, const char* signature) noexcept {
    m_uncaughtAtEntry = std::uncaught_exceptions();
    m_signature = signature;
    write(kEntry, signature, " [", file, ':', line, ']');
    foundation::DiagnosticLogger::Indentation::increase();
}

void FunctionScope::leave() noexcept {
    foundation::DiagnosticLogger::Indentation::decrease();
    if (trace::isWanted(kExit)) {
        const bool isThrowing = std::uncaught_exceptions() > m_uncaughtAtEntry;
        write(kExit, m_signature, isThrowing ? " [throw]" : "");
    }
}

}  // namespace storage::cloudprovider::trace
