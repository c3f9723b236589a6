// SPDX-License-Identifier: Apache-2.0
//
// Measures what one changed byte of a large object costs, from opening the file to closing it:
//
//   append     one byte at the end
//   overwrite  one byte in the middle
//
// Each with the parts that were downloaded, uploaded and copied within the store, the bytes that went each
// way, and the time beside a store in memory.

#include "harness.hpp"
#include "workload.hpp"

#include <memory>

namespace {

using Options = foundation::storage::provider::ByteStreamOpenOptions;

void noteCounts(const std::string& what, const bench::MemoryClient::Counts& counts, std::uint64_t partCount) {
    const bench::Goal atMostOne{bench::Goal::Kind::AtMost, 1};
    const auto note = [&](const char* name, const char* unit, std::uint64_t count, bench::Goal goal) {
        bench::noteFigure(what + ", " + name, unit, static_cast<double>(count), goal);
    };
    note("parts downloaded", "parts", counts.downloads, atMostOne);
    note("parts uploaded", "parts", counts.uploads + counts.puts, atMostOne);
    note("parts copied in the store", "parts", counts.copies,
         {bench::Goal::Kind::AtLeast, static_cast<double>(partCount - 1)});
    note("bytes down", "bytes", counts.bytesDown, {});
    note("bytes up", "bytes", counts.bytesUp, {});
}

}  // namespace

int main(int argc, char** argv) {
    bench::Program program(argc, argv);
    const auto size = program.pick(1024 * bench::kMiB, 64 * bench::kMiB);
    const int repetitions = program.pick(9, 2);
    const auto partCount = (size + bench::kPartSize - 1) / bench::kPartSize;

    const bench::Arena arena(bench::kPartSize);
    const auto client =
        std::make_shared<bench::MemoryClient>(arena, bench::kPartSize, bench::MemoryClient::Keep::Layout);
    const auto provider = bench::makeProvider(client);
    const auto measure = [&](const std::string& name, Options::WriteMode mode, std::uint64_t offset,
                             std::uint64_t sizeAfter) {
        client->makeObject("file", size);
        client->takeCounts();
        const auto seconds = bench::measureSeconds([&] { bench::writeOneByte(*provider, "/file", mode, offset); });
        bench::require(client->getObjectInfo("file")->Size == sizeAfter, "the object has a wrong size");
        const auto what = name + " 1 byte, " + bench::showSize(size);
        noteCounts(what, client->takeCounts(), partCount);
        bench::noteFigure(what + ", time", "ms", 1000 * seconds);
    };
    bench::Program::add("append", repetitions, [&] { measure("append", Options::WriteMode::Append, 0, size + 1); });
    bench::Program::add("overwrite", repetitions,
                        [&] { measure("overwrite", Options::WriteMode::Positioned, size / 2, size); });
    return program.run();
}
