// SPDX-License-Identifier: Apache-2.0
//
// Measures what threads and reading ahead do for a store that is far away: 30 ms a call, 40 MiB/s in each call, any
// number of calls at once.
//
//   upload    a new file in 64 KiB calls at 1, 2, 4 and 8 threads, from opening to closing it; floor: without threads
//   download  the same file in 64 KiB calls, reading ahead as many parts as there are threads; floor: without either
//   edit      one byte in the middle of a large object, from opening to closing it: requests, in all and of each kind,
//             and the time in latencies of the store, without that of one part each way, which is fetched and sent
//   random    4 KiB at 100 places: requests with reading ahead and without
//
// Times are the clock's also with --cpu-time: what they consist of is waiting.

#include "DistantClient.hpp"
#include "harness.hpp"
#include "workload.hpp"

#include <algorithm>
#include <memory>
#include <numeric>
#include <string>

namespace {

namespace provider = foundation::storage::provider;
using bench::DistantClient;
using bench::Goal;
using storage::cloudprovider::ProviderOptions;

constexpr std::uint32_t kMostThreads = 8;

ProviderOptions makeOptions(std::uint32_t threads, std::uint32_t readAheadParts) {
    ProviderOptions options;
    options.transferThreads = threads;
    options.readAheadParts = readAheadParts;
    return options;
}

std::uint64_t countAll(const DistantClient::Requests& requests) {
    return std::accumulate(requests.begin(), requests.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const auto& kind) { return sum + kind.second; });
}

// Parts that come from the wrong place would be no slower.
void readContent(const provider::IProvider& store, std::uint64_t size) {
    const auto stream = store.openReadOnlyStream(provider::StorageIRI::fromUtf8("/file"));
    for (std::uint64_t position = 0; position < size;) {
        const auto count = stream->read(bench::callBuffer(), bench::kCallSize);
        bench::require(count > 0, "the file ends early");
        const auto bytes = static_cast<std::size_t>(count);
        bench::require(DistantClient::isContent(bench::callBuffer(), bytes, position), "other bytes came back");
        position += bytes;
    }
    bench::require(stream->read(bench::callBuffer(), 1) == -1, "the file does not end");
    stream->close();
}

double measureUpload(const std::shared_ptr<DistantClient>& client, std::uint64_t size, std::uint32_t threads) {
    const auto store = bench::makeProvider(client, makeOptions(threads, 0));
    client->deleteObject("file");
    const auto seconds = bench::measureElapsedSeconds([&] { bench::writeFile(*store, "/file", size); });
    bench::require(client->sizeOf("file") == size, "the file was not stored");
    return seconds;
}

double measureDownload(const std::shared_ptr<DistantClient>& client, std::uint64_t size, std::uint32_t threads) {
    const auto store = bench::makeProvider(client, makeOptions(threads, threads));
    client->makeObject("file", size, bench::kPartSize);
    return bench::measureElapsedSeconds([&] { readContent(*store, size); });
}

// Once at each number of threads, none included.
template <typename Measure>
void compareThreads(const std::string& what, std::uint64_t size, const Measure& measure) {
    const auto mebibytes = static_cast<double>(size) / bench::kMiB;
    const auto floor = mebibytes / measure(0);
    for (std::uint32_t threads = 1; threads <= kMostThreads; threads *= 2) {
        const auto text = what + ' ' + bench::showSize(size) + ", " + std::to_string(threads) + " threads; floor: none";
        bench::noteComparison(text, "MiB/s", mebibytes / measure(threads), floor,
                              threads == kMostThreads ? Goal{Goal::Kind::AtLeast, 600} : Goal{});
    }
}

void editOneByte(const bench::Distance& distance, std::uint64_t size) {
    const auto client = std::make_shared<DistantClient>(distance);
    const auto store = bench::makeProvider(client, makeOptions(kMostThreads, kMostThreads));
    client->makeObject("file", size, bench::kPartSize);
    // Off the middle, where the runs of unchanged parts may have an end anyway.
    const auto position = size / 2 + size / 16;
    const auto seconds = bench::measureElapsedSeconds([&] {
        bench::writeOneByte(*store, "/file", provider::ByteStreamOpenOptions::WriteMode::Positioned, position);
    });
    const auto requests = client->takeRequests();
    bench::require(client->sizeOf("file") == size, "the object has a wrong size");

    const auto what = "edit 1 byte, " + bench::showSize(size);
    const auto partSeconds = static_cast<double>(bench::kPartSize) / static_cast<double>(distance.bytesPerSecond);
    const auto latency = std::chrono::duration<double>(distance.latency).count();
    bench::noteFigure(what, "requests", static_cast<double>(countAll(requests)), {Goal::Kind::AtMost, 14});
    for (const auto& [kind, count] : requests) {
        bench::noteFigure("  to " + kind, "requests", static_cast<double>(count));
    }
    bench::noteFigure(what + ", time but for a part each way", "latencies", (seconds - 2 * partSeconds) / latency,
                      {Goal::Kind::AtMost, 6});
}

std::uint64_t countRandomReads(const ProviderOptions& options, std::uint64_t size) {
    constexpr std::uint64_t kReadSize = 4 * bench::kKiB;
    // Requests do not depend on how far the store is, but whatever is fetched ahead has to begin between two reads.
    const auto client = std::make_shared<DistantClient>(bench::Distance{std::chrono::milliseconds(1), 0});
    client->makeObject("file", size, bench::kPartSize);
    const auto store = bench::makeProvider(client, options);
    const auto stream = store->openReadOnlyStream(provider::StorageIRI::fromUtf8("/file"));
    for (const auto place : bench::choosePlaces(size, kReadSize)) {
        stream->seek(static_cast<std::int64_t>(place), std::ios_base::beg);
        bench::require(stream->read(bench::callBuffer(), kReadSize) == kReadSize, "a read came back short");
        bench::require(DistantClient::isContent(bench::callBuffer(), kReadSize, place), "other bytes came back");
    }
    stream->close();
    return countAll(client->takeRequests());
}

void compareRandomReads(std::uint64_t size) {
    const auto without = static_cast<double>(countRandomReads({}, size));
    const auto what = "100 times 4 KiB of " + bench::showSize(size) + ", read-ahead ";
    bench::noteFigure(what + "off", "requests", without);
    bench::noteFigure(what + "on", "requests",
                      static_cast<double>(countRandomReads(makeOptions(kMostThreads, kMostThreads), size)),
                      {Goal::Kind::AtMost, without});
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Program program(argc, argv);
    const auto size = program.pick(512 * bench::kMiB, 40 * bench::kMiB);
    const auto largeSize = program.pick(1024 * bench::kMiB, 80 * bench::kMiB);
    const auto distance = program.pick(bench::Distance{std::chrono::milliseconds(30), 40 * bench::kMiB},
                                       bench::Distance{std::chrono::milliseconds(1), 2048 * bench::kMiB});
    const auto client = std::make_shared<DistantClient>(distance);

    bench::Program::add("upload", program.pick(3, 1), [=] {
        compareThreads("upload", size, [&](std::uint32_t threads) { return measureUpload(client, size, threads); });
    });
    bench::Program::add("download", program.pick(3, 1), [=] {
        compareThreads("download", size, [&](std::uint32_t threads) { return measureDownload(client, size, threads); });
    });
    bench::Program::add("edit", program.pick(9, 2), [=] { editOneByte(distance, largeSize); });
    bench::Program::add("random", program.pick(3, 1), [=] { compareRandomReads(largeSize); });
    return program.run();
}
