// SPDX-License-Identifier: Apache-2.0
#include "fileWork.hpp"

#include "harness.hpp"
#include "workload.hpp"

#include <storage/cloudprovider/openSequentialWriter.hpp>
#include <storage/cloudprovider/readInPieces.hpp>

#include <fcntl.h>
#include <unistd.h>
#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <future>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

namespace provider = foundation::storage::provider;
namespace cloud = storage::cloudprovider;
using provider::StorageIRI;

namespace {

constexpr std::size_t kBufferSize = 256 * 1024;  // of cloudfs
constexpr std::uint64_t kReadSize = 4 * kKiB;

}  // namespace

std::shared_ptr<provider::IProvider> makeToolProvider(std::shared_ptr<cloud::CloudClient> client,
                                                      std::uint32_t threads) {
    cloud::ProviderOptions options;
    options.transferThreads = threads;
    options.readAheadParts = threads;
    options.lightBuffers = true;
    options.copyInStore = true;
    options.moveOrder = cloud::MoveOrder::StoreDestinationFirst;
    return makeProvider(std::move(client), options);
}

void upload(const provider::IProvider& store, const std::string& local, const std::string& path) {
    std::ifstream source(local, std::ios::binary);
    require(source.is_open(), "cannot read " + local);
    const auto stream = cloud::openSequentialWriter(store, StorageIRI::fromUtf8(path));
    std::vector<char> buffer(kBufferSize);
    while (source.read(buffer.data(), static_cast<std::streamsize>(buffer.size())), source.gcount() > 0) {
        require(stream->write(buffer.data(), source.gcount()) == source.gcount(), "a write took less");
    }
    stream->close();
}

void download(const provider::IProvider& store, const std::string& path, const std::string& local) {
    const auto target = ::open(local.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR);
    require(target >= 0, "cannot write " + local);
    cloud::readInPieces(store, StorageIRI::fromUtf8(path), [&](std::uint64_t offset, std::string_view bytes) {
        const auto written = ::pwrite(target, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        require(written == static_cast<ssize_t>(bytes.size()), "cannot write " + local);
    });
    require(::close(target) == 0, "cannot write " + local);
}

void forEach(std::uint32_t threads, std::size_t count, const std::function<void(std::size_t)>& call) {
    std::atomic<std::size_t> next{0};
    std::vector<std::future<void>> workers;
    for (std::uint32_t i = 0; i < threads; ++i) {
        workers.push_back(std::async(std::launch::async, [&] {
            try {
                for (auto at = next++; at < count; at = next++) {
                    call(at);
                }
            } catch (...) {
                next = count;
                throw;
            }
        }));
    }
    for (auto& worker : workers) {
        worker.get();
    }
}

void readRandomly(const provider::IProvider& store, const std::string& path) {
    const auto stream = store.openReadOnlyStream(StorageIRI::fromUtf8(path));
    const auto size = store.getFileAttributes(StorageIRI::fromUtf8(path)).getSize();
    require(size.has_value(), path + " has no size");
    for (const auto place : choosePlaces(*size, kReadSize)) {
        stream->seek(static_cast<std::int64_t>(place), std::ios_base::beg);
        require(stream->read(callBuffer(), kReadSize) == kReadSize, "a read came back short");
    }
    stream->close();
}

void readLocalRandomly(const std::string& local) {
    const auto size = boost::filesystem::file_size(local);
    const int descriptor = ::open(local.c_str(), O_RDONLY | O_CLOEXEC);
    require(descriptor >= 0, "cannot read " + local);
    for (const auto place : choosePlaces(size, kReadSize)) {
        const auto count = ::pread(descriptor, callBuffer(), kReadSize, static_cast<off_t>(place));
        require(count == static_cast<ssize_t>(kReadSize), "a read came back short");
    }
    ::close(descriptor);
}

}  // namespace bench
