// SPDX-License-Identifier: Apache-2.0
#include "harness.hpp"

#include <foundation/services/Files.hpp>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/utsname.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace bench {

namespace {

clockid_t g_clock = CLOCK_MONOTONIC;  // set before anything is measured

// A line of the table.
struct Row {
    std::string what;
    std::string unit;
    Goal goal;
    std::vector<double> values;
    std::vector<double> floors;  // as many as values, or none
};

std::vector<Row>& rows() {
    static std::vector<Row> instance;
    return instance;
}

Row& findRow(const std::string& what, const std::string& unit, Goal goal) {
    auto& all = rows();
    const auto known = std::find_if(all.begin(), all.end(), [&](const Row& row) { return row.what == what; });
    return known != all.end() ? *known : all.emplace_back(Row{what, unit, goal, {}, {}});
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

std::string show(double value, int digits) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(digits) << value;
    return text.str();
}

// Three digits that mean something, and integers as they are.
std::string show(double value) {
    const auto size = value < 0 ? -value : value;
    const bool isCount = value == static_cast<double>(static_cast<std::int64_t>(value));
    return show(value, isCount || size >= 100 ? 0 : size >= 10 ? 1 : 2);
}

std::string showGoal(const Goal& goal, const std::string& unit) {
    if (goal.kind == Goal::Kind::None) {
        return "";
    }
    return (goal.kind == Goal::Kind::AtLeast ? ">= " : "<= ") + show(goal.bound) + ' ' + unit;
}

std::string judge(const Goal& goal, double value) {
    if (goal.kind == Goal::Kind::None) {
        return "";
    }
    const bool isMet = goal.kind == Goal::Kind::AtLeast ? value >= goal.bound : value <= goal.bound;
    return isMet ? "met" : "MISSED";
}

void printLine(const std::string& what, const std::string& measured, const std::string& floor, const std::string& share,
               const std::string& goal, const std::string& verdict) {
    std::cout << std::left << std::setw(50) << what << std::right << std::setw(19) << measured << std::setw(13) << floor
              << "  " << std::left << std::setw(22) << share << std::setw(16) << goal << verdict << '\n';
}

void printRow(const Row& row) {
    const auto value = median(row.values);
    const auto measured = show(value) + ' ' + row.unit;
    if (row.floors.empty()) {
        printLine(row.what, measured, "", "", showGoal(row.goal, row.unit), judge(row.goal, value));
        return;
    }
    std::vector<double> shares;
    for (std::size_t i = 0; i < row.values.size(); ++i) {
        shares.push_back(100 * row.values[i] / row.floors[i]);
    }
    const auto range = std::minmax_element(shares.begin(), shares.end());
    const auto share = median(shares);
    const int digits = share < 100 ? 1 : 0;
    const auto shownShare =
        show(share, digits) + " % (" + show(*range.first, digits) + ".." + show(*range.second, digits) + ')';
    printLine(row.what, measured, show(median(row.floors)), shownShare, showGoal(row.goal, "%"),
              judge(row.goal, share));
}

std::string readProcessorName() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("model name", 0) == 0 && line.find(':') != std::string::npos) {
            return line.substr(line.find(':') + 2);
        }
    }
    return "unknown processor";
}

std::string describeFileSystem(const std::string& folder) {
    struct statfs answer = {};
    if (::statfs(folder.c_str(), &answer) != 0) {
        return "unknown";
    }
    switch (answer.f_type) {  // the numbers of linux/magic.h
        case 0xEF53:
            return "ext4";
        case 0x01021994:
            return "tmpfs";
        case 0x58465342:
            return "xfs";
        case 0x9123683E:
            return "btrfs";
        default:
            return "type " + std::to_string(answer.f_type);
    }
}

void printHeading() {
    struct utsname system = {};
    ::uname(&system);
    const auto& processors = benchmark::CPUInfo::Get();
    const auto memory =
        static_cast<std::uint64_t>(::sysconf(_SC_PHYS_PAGES)) * static_cast<std::uint64_t>(::getpagesize());
    const auto folder = foundation::temporaryFolder().native();
    std::cout << "machine    " << readProcessorName() << ", " << processors.num_cpus << " processors, " << memory / kMiB
              << " MiB, " << system.sysname << ' ' << system.release << '\n'
              << "load       " << (processors.load_avg.empty() ? 0.0 : processors.load_avg.front()) << '\n'
              << "compiler   " << BENCH_COMPILER << '\n'
              << "temporary  " << folder << ", " << describeFileSystem(folder) << '\n'
              << "figures    medians, by " << (g_clock == CLOCK_MONOTONIC ? "the clock" : "processor time")
              << "; shares of the floor are taken in pairs, (least..most)\n\n";
    printLine("what", "measured", "floor", "share of the floor", "goal", "");
}

double now(clockid_t clock) {
    struct timespec time = {};
    ::clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// What the file system has yet to do for files that were there before would be done at the cost of the next
// call.
void settleTemporaryFolder() {
    const int descriptor = ::open(foundation::temporaryFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        ::syncfs(descriptor);
        ::close(descriptor);
    }
}

double measure(clockid_t clock, const std::function<void()>& call) {
    settleTemporaryFolder();
    const auto start = now(clock);
    call();
    return now(clock) - start;
}

// The figures go to the table above; Google Benchmark chooses and repeats.
class SilentReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& /*runs*/) override {}
};

}  // namespace

void noteFigure(const std::string& what, const std::string& unit, double value, Goal goal) {
    findRow(what, unit, goal).values.push_back(value);
}

void noteComparison(const std::string& what, const std::string& unit, double speed, double floor, Goal goal) {
    auto& row = findRow(what, unit, goal);
    row.values.push_back(speed);
    row.floors.push_back(floor);
}

double measureSeconds(const std::function<void()>& call) {
    return measure(g_clock, call);
}

double measureElapsedSeconds(const std::function<void()>& call) {
    return measure(CLOCK_MONOTONIC, call);
}

Seconds measureBoth(const std::function<void()>& floor, const std::function<void()>& workload) {
    static bool isFloorFirst = false;
    isFloorFirst = !isFloorFirst;
    Seconds seconds = {};
    if (isFloorFirst) {
        seconds.floor = measureSeconds(floor);
    }
    seconds.workload = measureSeconds(workload);
    if (!isFloorFirst) {
        seconds.floor = measureSeconds(floor);
    }
    return seconds;
}

char* callBuffer() {
    static std::vector<char> buffer(kCallSize, 'b');
    return buffer.data();
}

std::string showSize(std::uint64_t bytes) {
    if (bytes >= kMiB * kKiB && bytes % (kMiB * kKiB) == 0) {
        return std::to_string(bytes / kMiB / kKiB) + " GiB";
    }
    return bytes >= kMiB ? std::to_string(bytes / kMiB) + " MiB" : std::to_string(bytes / kKiB) + " KiB";
}

void require(bool condition, const std::string& text) {
    if (!condition) {
        throw std::runtime_error(text);
    }
}

Program::Program(int argc, char** argv) {
    std::vector<char*> rest;
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--small") {
            m_isSmall = true;
        } else if (argument == "--rows") {
            m_hasHeading = false;
        } else if (argument == "--cpu-time") {
            g_clock = CLOCK_PROCESS_CPUTIME_ID;
        } else {
            rest.push_back(argv[i]);
        }
    }
    int count = static_cast<int>(rest.size());
    rest.push_back(nullptr);
    benchmark::Initialize(&count, rest.data());
    ::unsetenv("VX_CLOUD_PART_SIZE_OVERRIDE");              // NOLINT(concurrency-mt-unsafe): no threads yet
    ::unsetenv("VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE");  // NOLINT(concurrency-mt-unsafe): no threads yet
}

void Program::add(const std::string& name, int repetitions, const std::function<void()>& benchmark) {
    benchmark::RegisterBenchmark(name.c_str(),
                                 [benchmark](benchmark::State& state) {
                                     while (state.KeepRunning()) {
                                         benchmark();
                                     }
                                 })
        ->Iterations(1)
        ->Repetitions(repetitions);
}

int Program::run() const noexcept {
    try {
        SilentReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        if (m_hasHeading) {
            printHeading();
        }
        for (const auto& row : rows()) {
            printRow(row);
        }
        std::cout.flush();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "failed: " << error.what() << '\n';
        return 1;
    }
}

}  // namespace bench
