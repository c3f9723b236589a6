// SPDX-License-Identifier: Apache-2.0
//
// Reads 1 KiB at a time from a cached part, as often as the first argument says, with tracing off: the
// program that trace_cost.sh runs under callgrind to measure what share of the instructions is trace code.

#include "Arena.hpp"
#include "workload.hpp"

#include <array>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>

namespace {

constexpr std::int64_t kReadSize = 1024;

// Counting begins when this function is entered, see trace_cost.sh.
[[gnu::noinline]] void readFromCachedPart(foundation::storage::provider::ByteStream& stream, long count) {
    static std::array<char, kReadSize> buffer;
    for (long i = 0; i < count; ++i) {
        if (stream.read(buffer.data(), kReadSize) != kReadSize) {
            throw std::runtime_error("a read came back short");
        }
        if ((i + 1) * kReadSize % static_cast<std::int64_t>(bench::kPartSize) == 0) {
            stream.seek(0, std::ios_base::beg);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const long count = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1000;
        const bench::Arena arena(bench::kPartSize);
        const auto client = std::make_shared<bench::MemoryClient>(arena, bench::kPartSize);
        client->makeObject("file", bench::kPartSize);
        const auto provider = bench::makeProvider(client);
        const auto stream = provider->openReadOnlyStream(foundation::storage::provider::StorageIRI::fromUtf8("/file"));
        bench::readStream(*stream, bench::kPartSize);
        stream->seek(0, std::ios_base::beg);
        char first = 0;
        stream->read(&first, 1);
        stream->seek(0, std::ios_base::beg);
        readFromCachedPart(*stream, count);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "failed: " << error.what() << '\n';
        return 1;
    }
}
