// SPDX-License-Identifier: Apache-2.0
//
// s3_workload THREADS COMMAND...: what run has no other program for, on the bucket S3_BUCKET and the store that the
// variables AWS_* tell, with the options of cloudfs but for the number of threads. run takes the time.
//
//   upload LOCAL PATH     one file; THREADS transfer its parts
//   download PATH LOCAL   one file; THREADS transfer its parts, and as many are read ahead
//   put LOCAL PATH        the files of a folder, THREADS of them at a time
//   get PATH LOCAL        the same back
//   fill PREFIX COUNT N   empty objects below a prefix, N in each folder of it; 0: all in one
//   read PATH             4 KiB at 100 random places of a file
//   read-local LOCAL      the same of a local file, such as one in a mounted store

#include "harness.hpp"
#include "workload.hpp"

#include <foundation/services/Text.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/openSequentialWriter.hpp>
#include <storage/cloudprovider/s3/S3Client.hpp>

#include <fcntl.h>
#include <unistd.h>
#include <boost/filesystem/operations.hpp>
#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/stream.hpp>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <future>
#include <iostream>
#include <string>
#include <vector>

namespace {

namespace provider = foundation::storage::provider;
namespace cloud = storage::cloudprovider;
using provider::StorageIRI;

constexpr std::size_t kBufferSize = 256 * 1024;  // of cloudfs
constexpr std::uint64_t kReadSize = 4 * bench::kKiB;

std::shared_ptr<cloud::S3Client> openClient() {
    const auto* const bucket = std::getenv("S3_BUCKET");  // NOLINT(concurrency-mt-unsafe): no threads yet
    bench::require(bucket != nullptr, "S3_BUCKET is not set");
    cloud::S3Options options;
    options.Bucket = bucket;
    return std::make_shared<cloud::S3Client>(options);
}

std::shared_ptr<provider::IProvider> openProvider(std::uint32_t threads) {
    cloud::ProviderOptions options;
    options.transferThreads = threads;
    options.readAheadParts = threads;
    options.lightBuffers = true;
    options.copyInStore = true;
    options.moveOrder = cloud::MoveOrder::StoreDestinationFirst;
    return bench::makeProvider(openClient(), options);
}

void upload(const provider::IProvider& store, const std::string& local, const std::string& path) {
    std::ifstream source(local, std::ios::binary);
    bench::require(source.is_open(), "cannot read " + local);
    const auto stream = cloud::openSequentialWriter(store, StorageIRI::fromUtf8(path));
    std::vector<char> buffer(kBufferSize);
    while (source.read(buffer.data(), static_cast<std::streamsize>(buffer.size())), source.gcount() > 0) {
        bench::require(stream->write(buffer.data(), source.gcount()) == source.gcount(), "a write took less");
    }
    stream->close();
}

void download(const provider::IProvider& store, const std::string& path, const std::string& local) {
    std::ofstream target(local, std::ios::binary);
    const auto stream = store.openReadOnlyStream(StorageIRI::fromUtf8(path));
    std::vector<char> buffer(kBufferSize);
    for (;;) {
        const auto count = stream->read(buffer.data(), static_cast<std::int64_t>(buffer.size()));
        if (count < 0) {
            break;
        }
        target.write(buffer.data(), count);
    }
    stream->close();
    target.close();
    bench::require(!target.fail(), "cannot write " + local);
}

// Calls with each number below count, on so many threads. The first failure comes out; the others then end early.
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

void put(std::uint32_t threads, const std::string& local, const std::string& path) {
    const auto store = openProvider(1);
    std::vector<std::string> names;
    for (const auto& entry : boost::filesystem::directory_iterator(local)) {
        names.push_back(entry.path().filename().native());
    }
    forEach(threads, names.size(),
            [&](std::size_t at) { upload(*store, local + '/' + names[at], path + '/' + names[at]); });
}

void get(std::uint32_t threads, const std::string& path, const std::string& local) {
    const auto store = openProvider(1);
    std::vector<std::string> names;
    const auto entries = store->listFiles(StorageIRI::fromUtf8(path));
    while (entries->hasNext()) {
        entries->next();
        names.push_back(foundation::toUtf8Lossy(entries->get().getName()));
    }
    boost::filesystem::create_directories(local);
    forEach(threads, names.size(),
            [&](std::size_t at) { download(*store, path + '/' + names[at], local + '/' + names[at]); });
}

void fill(std::uint32_t threads, const std::string& prefix, std::size_t count, std::size_t perFolder) {
    const auto client = openClient();
    forEach(threads, count, [&](std::size_t at) {
        const auto folder = perFolder == 0 ? "" : "folder-" + std::to_string(at / perFolder) + '/';
        boost::iostreams::stream<boost::iostreams::array_source> nothing("", std::size_t{0});
        client->putObject(prefix + '/' + folder + "key-" + std::to_string(at), nothing, 0);
    });
}

void readRandomly(std::uint32_t threads, const std::string& path) {
    const auto store = openProvider(threads);
    const auto stream = store->openReadOnlyStream(StorageIRI::fromUtf8(path));
    const auto size = store->getFileAttributes(StorageIRI::fromUtf8(path)).getSize();
    bench::require(size.has_value(), path + " has no size");
    for (const auto place : bench::choosePlaces(*size, kReadSize)) {
        stream->seek(static_cast<std::int64_t>(place), std::ios_base::beg);
        bench::require(stream->read(bench::callBuffer(), kReadSize) == kReadSize, "a read came back short");
    }
    stream->close();
}

void readLocalRandomly(const std::string& local) {
    const auto size = boost::filesystem::file_size(local);
    const int descriptor = ::open(local.c_str(), O_RDONLY | O_CLOEXEC);
    bench::require(descriptor >= 0, "cannot read " + local);
    for (const auto place : bench::choosePlaces(size, kReadSize)) {
        const auto count = ::pread(descriptor, bench::callBuffer(), kReadSize, static_cast<off_t>(place));
        bench::require(count == static_cast<ssize_t>(kReadSize), "a read came back short");
    }
    ::close(descriptor);
}

void run(const std::vector<std::string>& arguments) {
    const auto argument = [&](std::size_t index) {
        return index < arguments.size() ? arguments[index] : std::string();
    };
    const auto threads = static_cast<std::uint32_t>(std::stoul(argument(0)));
    const auto command = argument(1);
    if (command == "upload") {
        upload(*openProvider(threads), argument(2), argument(3));
    } else if (command == "download") {
        download(*openProvider(threads), argument(2), argument(3));
    } else if (command == "put") {
        put(threads, argument(2), argument(3));
    } else if (command == "get") {
        get(threads, argument(2), argument(3));
    } else if (command == "fill") {
        fill(threads, argument(2), std::stoul(argument(3)), std::stoul(argument(4)));
    } else if (command == "read") {
        readRandomly(threads, argument(2));
    } else if (command == "read-local") {
        readLocalRandomly(argument(2));
    } else {
        throw std::runtime_error("no such command: " + command);
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        run({argv + 1, argv + argc});
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "s3_workload: " << failure.what() << '\n';
        return 1;
    }
}
