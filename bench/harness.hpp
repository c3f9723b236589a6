// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

/// What the benchmark programs have in common: options, repetition, and one table of figures.
///
/// Options of every program: --small for sizes that only show that it works, --rows for the table's rows
/// without the heading, --cpu-time to measure the process's processor time, which on a busy machine tells
/// more than the clock, and those of Google Benchmark.
namespace bench {

inline constexpr std::uint64_t kKiB = 1024;
inline constexpr std::uint64_t kMiB = 1024 * kKiB;

/// Size in bytes of the calls that stream.
inline constexpr std::size_t kCallSize = 64 * kKiB;

/// What is asked of a figure.
struct Goal {
    enum class Kind { None, AtLeast, AtMost };
    Kind kind = Kind::None;
    double bound = 0;  ///< in the unit of the figure; of a comparison: in percent of the floor
};

/// Note a figure; the table shows the median of all that were noted with the same text.
void noteFigure(const std::string& what, const std::string& unit, double value, Goal goal = {});

/// Note a speed beside the floor's, taken right before or after it. The table shows the medians, and the
/// median and the range of the shares that were taken together.
void noteComparison(const std::string& what, const std::string& unit, double speed, double floor, Goal goal);

/// Seconds that a call takes, by the clock unless the command line says otherwise.
double measureSeconds(const std::function<void()>& call);

/// Seconds that a call takes by the clock whatever the command line says: for work that waits rather than computes.
double measureElapsedSeconds(const std::function<void()>& call);

/// Seconds that two calls take, done one after the other; which of them is the first alternates.
struct Seconds {
    double floor;
    double workload;
};
Seconds measureBoth(const std::function<void()>& floor, const std::function<void()>& workload);

/// The bytes of one call: what floors and workloads copy from and to.
char* callBuffer();

/// A size as the table shows it, such as "64 KiB".
std::string showSize(std::uint64_t bytes);

/// Throws std::runtime_error with that text unless the condition holds: a figure of work that was not done
/// would be worthless.
void require(bool condition, const std::string& text);

/// One run of a benchmark program.
class Program {
public:
    /// Reads the command line; takes the environment's overrides of sizes away, so that defaults are
    /// measured.
    Program(int argc, char** argv);

    /// The first value, or the second one with --small.
    template <typename T>
    T pick(T full, T small) const {
        return m_isSmall ? small : full;
    }

    /// Register a benchmark that is run that many times; it notes its figures itself.
    static void add(const std::string& name, int repetitions, const std::function<void()>& benchmark);

    /// Run what was registered and print the table. Answers the exit status: 0, or 1 after an exception.
    int run() const noexcept;

private:
    bool m_isSmall = false;
    bool m_hasHeading = true;
};

}  // namespace bench
