// SPDX-License-Identifier: Apache-2.0
//
// s3_workload THREADS COMMAND...: what run has no other program for, on the bucket S3_BUCKET and the store that the
// variables AWS_* tell, with the options of cloudfs but for the number of threads. run takes the time.
//
//   upload LOCAL PATH     one file; THREADS transfer its parts
//   download PATH LOCAL   one file; THREADS fetch it
//   fill PREFIX COUNT N   empty objects below a prefix, N in each folder of it; 0: all in one
//   read PATH             4 KiB at 100 random places of a file
//   read-local LOCAL      the same of a local file, such as one in a mounted store

#include "fileWork.hpp"
#include "harness.hpp"

#include <storage/cloudprovider/s3/S3Client.hpp>

#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/stream.hpp>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace {

namespace cloud = storage::cloudprovider;

std::shared_ptr<cloud::S3Client> openClient() {
    const auto* const bucket = std::getenv("S3_BUCKET");  // NOLINT(concurrency-mt-unsafe): no threads yet
    bench::require(bucket != nullptr, "S3_BUCKET is not set");
    cloud::S3Options options;
    options.Bucket = bucket;
    return std::make_shared<cloud::S3Client>(options);
}

std::shared_ptr<foundation::storage::provider::IProvider> openProvider(std::uint32_t threads) {
    return bench::makeToolProvider(openClient(), threads);
}

void fill(std::uint32_t threads, const std::string& prefix, std::size_t count, std::size_t perFolder) {
    const auto client = openClient();
    bench::forEach(threads, count, [&](std::size_t at) {
        const auto folder = perFolder == 0 ? "" : "folder-" + std::to_string(at / perFolder) + '/';
        boost::iostreams::stream<boost::iostreams::array_source> nothing("", std::size_t{0});
        client->putObject(prefix + '/' + folder + "key-" + std::to_string(at), nothing, 0);
    });
}

void run(const std::vector<std::string>& arguments) {
    const auto argument = [&](std::size_t index) {
        return index < arguments.size() ? arguments[index] : std::string();
    };
    const auto threads = static_cast<std::uint32_t>(std::stoul(argument(0)));
    const auto command = argument(1);
    if (command == "upload") {
        bench::upload(*openProvider(threads), argument(2), argument(3));
    } else if (command == "download") {
        bench::download(*openProvider(threads), argument(2), argument(3));
    } else if (command == "fill") {
        fill(threads, argument(2), std::stoul(argument(3)), std::stoul(argument(4)));
    } else if (command == "read") {
        bench::readRandomly(*openProvider(threads), argument(2));
    } else if (command == "read-local") {
        bench::readLocalRandomly(argument(2));
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
