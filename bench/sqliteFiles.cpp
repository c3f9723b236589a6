// SPDX-License-Identifier: Apache-2.0
//
// Measures, over a store in one SQLite file:
//
//   small  new files of 100 bytes, each opened, written and closed, with light buffers; floor: the same objects put
//          through the client alone, into a store of its own
//   copy   a large file to a new one, copied inside the store

#include "ScratchFolder.hpp"
#include "harness.hpp"
#include "workload.hpp"

#include <storage/cloudprovider/sqlite/SqliteClient.hpp>

#include <boost/filesystem/operations.hpp>
#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/stream.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace provider = foundation::storage::provider;
using storage::cloudprovider::CloudClient;
using storage::cloudprovider::ProviderOptions;
using storage::cloudprovider::SqliteClient;
using Source = boost::iostreams::stream<boost::iostreams::array_source>;

constexpr std::size_t kSmallSize = 100;

// A store of its own, removed at the end.
class Store {
public:
    Store() : m_client(std::make_shared<SqliteClient>(m_folder.file("store.db"))) {}

    const std::shared_ptr<SqliteClient>& client() const { return m_client; }

private:
    const bench::ScratchFolder m_folder;
    const std::shared_ptr<SqliteClient> m_client;
};

std::string smallName(std::uint64_t number) {
    return "file-" + std::to_string(number);
}

void requireSmallFiles(CloudClient& client, std::uint64_t count) {
    std::uint64_t found = 0;
    std::string token;
    do {
        const auto page = client.listObjects("", token, {});
        found += static_cast<std::uint64_t>(
            std::count_if(page.begin(), page.end(), [](const auto& object) { return object.Size == kSmallSize; }));
    } while (!token.empty());
    bench::require(found == count, "the small files were not stored");
}

void compareSmallFiles(std::uint64_t count) {
    const Store floor;
    const Store workload;
    ProviderOptions options;
    options.lightBuffers = true;
    const auto files = bench::makeProvider(workload.client(), options);
    const auto seconds = bench::measureBoth(
        [&] {
            for (std::uint64_t i = 0; i < count; ++i) {
                Source data(bench::callBuffer(), kSmallSize);
                floor.client()->putObject(smallName(i), data, kSmallSize);
            }
        },
        [&] {
            for (std::uint64_t i = 0; i < count; ++i) {
                bench::writeFile(*files, "/" + smallName(i), kSmallSize);
            }
        });
    requireSmallFiles(*floor.client(), count);
    requireSmallFiles(*workload.client(), count);
    const auto rate = [&](double taken) { return static_cast<double>(count) / taken; };
    bench::noteComparison(std::to_string(count) + " files of 100 bytes, floor: the client", "files/s",
                          rate(seconds.workload), rate(seconds.floor), {bench::Goal::Kind::AtLeast, 50});
}

void storeLarge(CloudClient& client, std::uint64_t size) {
    const std::vector<char> bytes(bench::kPartSize, 'd');
    const auto upload = client.startMultipartUpload("large", "");
    std::vector<storage::cloudprovider::PartInfo> parts;
    for (std::uint64_t offset = 0; offset < size; offset += bench::kPartSize) {
        parts.push_back({parts.size(), offset, std::min(bench::kPartSize, size - offset), ""});
        Source data(bytes.data(), bytes.size());
        parts.back().Tag = client.uploadPart("large", upload, parts.back(), data);
    }
    client.completeMultipartUpload("large", upload, parts);
}

void copyLarge(CloudClient& client, const provider::IProvider& files, std::uint64_t size) {
    const auto seconds = bench::measureElapsedSeconds([&] {
        files.copyFile(provider::StorageIRI::fromUtf8("/large"), provider::StorageIRI::fromUtf8("/copy"),
                       provider::ReplacementPolicy::Fail);
    });
    bench::require(client.getObjectInfo("copy")->Size == size, "the copy has a wrong size");
    client.deleteObject("copy");
    bench::noteFigure("copy of " + bench::showSize(size) + " inside the store", "ms", 1000 * seconds,
                      {bench::Goal::Kind::AtMost, 50});
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Program program(argc, argv);
    const auto smallCount = program.pick<std::uint64_t>(10'000, 50);
    const auto largeSize = program.pick(1024 * bench::kMiB, 16 * bench::kMiB);
    bench::Program::add("small", program.pick(3, 2), [=] { compareSmallFiles(smallCount); });

    const auto large = std::make_shared<const Store>();
    ProviderOptions options;
    options.copyInStore = true;
    const auto files = bench::makeProvider(large->client(), options);
    bench::Program::add("copy", program.pick(9, 2), [=] {
        if (!large->client()->getObjectInfo("large")) {
            storeLarge(*large->client(), largeSize);
        }
        copyLarge(*large->client(), *files, largeSize);
    });
    return program.run();
}
