// SPDX-License-Identifier: Apache-2.0
//
// Measures by how much the heap grows, at the most, from before a file is opened until after it is closed:
//
//   write   new files of several sizes in 64 KiB calls
//   read    files of the same sizes in 64 KiB calls
//
// Every block that malloc and its kin give out counts, by its usable size, the whole program's. The store in
// memory holds one part's bytes, whatever the file's size, outside the heap; its records of parts count, too.

#include "HeapMeter.hpp"
#include "harness.hpp"
#include "workload.hpp"

#include <memory>
#include <string>

int main(int argc, char** argv) {
    bench::Program program(argc, argv);
    const bench::Goal goal{bench::Goal::Kind::AtMost, 16};

    const bench::Arena arena(bench::kPartSize);
    const auto client =
        std::make_shared<bench::MemoryClient>(arena, bench::kPartSize, bench::MemoryClient::Keep::Layout);
    const auto provider = bench::makeProvider(client);
    const auto note = [&](const std::string& what, const std::function<void()>& call) {
        const auto growth = static_cast<double>(bench::measureHeapGrowth(call));
        bench::noteFigure("heap growth, " + what, "MiB", growth / bench::kMiB, goal);
    };
    for (const auto fullSize : {256, 1024, 4096}) {
        const auto size = static_cast<std::uint64_t>(program.pick(fullSize, fullSize / 64)) * bench::kMiB;
        const auto name = bench::showSize(size);
        bench::Program::add("write/" + name, 1, [=] {
            client->deleteObject("file");
            note("write " + name, [&] { bench::writeFile(*provider, "/file", size); });
        });
        bench::Program::add("read/" + name, 1, [=] {
            client->makeObject("file", size);
            note("read " + name, [&] { bench::readFile(*provider, "/file", size); });
        });
    }
    return program.run();
}
