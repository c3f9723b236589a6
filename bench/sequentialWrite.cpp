// SPDX-License-Identifier: Apache-2.0
//
// Measures writing a very large new file through the sequential writer, to a store that is far away (30 ms a call,
// 40 MiB/s in each call) at 8 threads, in 64 KiB calls, from opening to closing it:
//
//   disk   the most room that temporary files took, looked at every millisecond
//   speed  by the clock also with --cpu-time: most of it is waiting

#include "DistantClient.hpp"
#include "ScratchFolder.hpp"
#include "harness.hpp"
#include "workload.hpp"

#include <storage/cloudprovider/openSequentialWriter.hpp>

#include <sys/stat.h>
#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>

namespace {

// Looks at the room that a folder's files take, from a thread of its own, until it is asked.
class RoomMeter {
public:
    explicit RoomMeter(boost::filesystem::path folder) : m_folder(std::move(folder)) {}

    // The most so far, in bytes.
    std::uint64_t stop() {
        m_thread.request_stop();
        m_thread.join();
        return m_most;
    }

private:
    void watch(const std::stop_token& stopToken) {
        while (!stopToken.stop_requested()) {
            m_most = std::max(m_most, measure());
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    // Blocks, not sizes: a file may have been made larger than what it has got room for. Files go while they are
    // looked at.
    std::uint64_t measure() const {
        constexpr std::uint64_t kBlockSize = 512;  // of st_blocks, see stat(3type)
        std::uint64_t total = 0;
        boost::system::error_code ignored;
        for (boost::filesystem::recursive_directory_iterator file(m_folder, ignored), end; file != end;
             file.increment(ignored)) {
            struct stat status = {};
            if (::stat(file->path().c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
                total += static_cast<std::uint64_t>(status.st_blocks) * kBlockSize;
            }
        }
        return total;
    }

    const boost::filesystem::path m_folder;
    std::uint64_t m_most = 0;  // the thread's own until it is joined
    std::jthread m_thread{[this](const std::stop_token& stopToken) { watch(stopToken); }};
};

void writeSequentially(const bench::Distance& distance, std::uint64_t size, const boost::filesystem::path& folder) {
    const auto client = std::make_shared<bench::DistantClient>(distance);
    storage::cloudprovider::ProviderOptions options;
    options.transferThreads = 8;
    const auto store = bench::makeProvider(client, options);
    RoomMeter meter(folder);
    const auto seconds = bench::measureElapsedSeconds([&] {
        const auto stream = storage::cloudprovider::openSequentialWriter(
            *store, foundation::storage::provider::StorageIRI::fromUtf8("/file"));
        bench::writeStream(*stream, size);
    });
    const auto most = meter.stop();
    bench::require(client->sizeOf("file") == size, "the file was not stored");
    bench::require(most != 0, "no temporary file was seen");

    const auto what = "sequential write of " + bench::showSize(size);
    bench::noteFigure(what + ", disk", "MiB", static_cast<double>(most) / bench::kMiB, {bench::Goal::Kind::AtMost, 60});
    bench::noteFigure(what, "MiB/s", static_cast<double>(size) / bench::kMiB / seconds);
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Program program(argc, argv);
    const bench::ScratchFolder folder;
    ::setenv("TMPDIR", folder.path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
    const auto size = program.pick(16 * 1024 * bench::kMiB, 160 * bench::kMiB);
    const auto distance = program.pick(bench::Distance{std::chrono::milliseconds(30), 40 * bench::kMiB},
                                       bench::Distance{std::chrono::milliseconds(1), 400 * bench::kMiB});
    bench::Program::add("sequential write", 1, [&] { writeSequentially(distance, size, folder.path()); });
    return program.run();
}
