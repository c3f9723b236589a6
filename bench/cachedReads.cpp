// SPDX-License-Identifier: Apache-2.0
//
// Measures the reading of a file again, through the same stream, when all of its parts are in the cache of
// default size:
//
//   re-read   the file in 64 KiB calls; floor: the same bytes copied out of one file that stays mapped
//   remapped  the same, beside a floor that maps and unmaps a file for each part, as the provider does so
//             that what it does not use is not mapped; it shows where the difference comes from

#include "fileFloor.hpp"
#include "harness.hpp"
#include "workload.hpp"

#include <cstring>
#include <deque>
#include <memory>

int main(int argc, char** argv) {
    bench::Program program(argc, argv);
    const auto size = program.pick(80 * bench::kMiB, 20 * bench::kMiB);
    const int repetitions = program.pick(41, 3);
    const auto mebibytes = static_cast<double>(size) / bench::kMiB;

    const bench::Arena arena(bench::kPartSize);
    const auto client =
        std::make_shared<bench::MemoryClient>(arena, bench::kPartSize, bench::MemoryClient::Keep::Layout);
    client->makeObject("file", size);
    const auto provider = bench::makeProvider(client);
    const auto stream = provider->openReadOnlyStream(foundation::storage::provider::StorageIRI::fromUtf8("/file"));
    bench::readStream(*stream, size);
    const auto reread = [&] {
        stream->seek(0, std::ios_base::beg);
        bench::readStream(*stream, size);
        bench::require(client->takeCounts().downloads == 0, "a part was not in the cache");
    };

    const bench::FloorFile mapped(size);
    std::memset(mapped.data(), 'c', size);
    std::deque<bench::FloorFile> parts;
    for (std::uint64_t offset = 0; offset < size; offset += bench::kPartSize) {
        auto& part = parts.emplace_back(bench::kPartSize);
        std::memset(part.data(), 'c', bench::kPartSize);
        part.unmap();
    }
    const auto copyParts = [&] {
        for (auto& part : parts) {
            part.map();
            bench::copyOut(part.data(), bench::kPartSize);
            part.unmap();
        }
    };

    const auto compare = [&](const std::string& what, const bench::Seconds& seconds, bench::Goal goal) {
        bench::noteComparison(what, "MiB/s", mebibytes / seconds.workload, mebibytes / seconds.floor, goal);
    };
    client->takeCounts();
    bench::Program::add("re-read", repetitions, [&] {
        compare("re-read " + bench::showSize(size) + " from the cache",
                bench::measureBoth([&] { bench::copyOut(mapped.data(), size); }, reread),
                {bench::Goal::Kind::AtLeast, 70});
    });
    bench::Program::add("remapped", repetitions, [&] {
        compare("  re-read, floor that maps each part", bench::measureBoth(copyParts, reread), {});
    });
    return program.run();
}
