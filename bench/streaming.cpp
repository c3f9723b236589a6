// SPDX-License-Identifier: Apache-2.0
//
// Measures, with the default sizes of parts and cache and a store in memory:
//
//   write   a new file in 64 KiB calls, from opening to closing it
//   read    the same file in 64 KiB calls, from opening to closing it
//
// Floor: temporary files of the same size, made, reserved, mapped, filled, copied out and deleted; as many of
// them at a time as the provider keeps: all written ones until the file is stored, read ones up to the
// cache's size. Shown a second time beside the same floor with the hint that huge pages suit.

#include "fileFloor.hpp"
#include "harness.hpp"
#include "workload.hpp"

#include <memory>
#include <string>

int main(int argc, char** argv) {
    bench::Program program(argc, argv);
    const auto size = program.pick(1024 * bench::kMiB, 32 * bench::kMiB);
    const auto mebibytes = static_cast<double>(size) / bench::kMiB;

    const bench::Arena arena((size + bench::kPartSize - 1) / bench::kPartSize * bench::kPartSize);
    const auto client = std::make_shared<bench::MemoryClient>(arena, bench::kPartSize);
    const auto provider = bench::makeProvider(client);

    const auto write = [&](bench::Pages pages) {
        client->deleteObject("file");
        const auto seconds = bench::measureBoth([&] { bench::writeThroughFiles(arena, size, bench::kPartSize, pages); },
                                                [&] { bench::writeFile(*provider, "/file", size); });
        const auto stored = client->getObjectInfo("file");
        bench::require(stored && stored->Size == size, "the file was not stored");
        return seconds;
    };
    const auto read = [&](bench::Pages pages) {
        client->deleteObject("file");
        client->makeObject("file", size);
        return bench::measureBoth(
            [&] { bench::readThroughFiles(arena, size, bench::kPartSize, bench::kCacheSize, pages); },
            [&] { bench::readFile(*provider, "/file", size); });
    };
    const auto add = [&](const std::string& what, const auto& measure) {
        const auto compare = [=](const std::string& text, const bench::Seconds& seconds, bench::Goal goal) {
            bench::noteComparison(text, "MiB/s", mebibytes / seconds.workload, mebibytes / seconds.floor, goal);
        };
        bench::Program::add(what, program.pick(9, 2), [=] {
            compare(what + ' ' + bench::showSize(size) + " in 64 KiB calls", measure(bench::Pages::Plain),
                    {bench::Goal::Kind::AtLeast, 85});
        });
        bench::Program::add(what + "/huge", program.pick(5, 1),
                            [=] { compare("  " + what + ", floor with huge pages", measure(bench::Pages::Huge), {}); });
    };
    add("write", write);
    add("read", read);
    return program.run();
}
