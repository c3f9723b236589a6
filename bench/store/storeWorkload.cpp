// SPDX-License-Identifier: Apache-2.0
//
// store_workload FILE THREADS COMMAND...: what run has no other program for, on the embedded store in FILE, with the
// options of cloudfs. run takes the time.
//
//   read PATH            4 KiB at 100 random places of a file
//   read-range PATH      the same, each asked of the store by itself
//   read-local LOCAL     the same of a local file

#include "fileWork.hpp"
#include "harness.hpp"
#include "workload.hpp"

#include <storage/cloudprovider/sqlite/SqliteClient.hpp>

#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/stream.hpp>

#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace {

using storage::cloudprovider::SqliteClient;

void readRanges(SqliteClient& client, const std::string& key) {
    constexpr std::uint64_t kReadSize = 4 * bench::kKiB;
    const auto info = client.getObjectInfo(key);
    bench::require(info.has_value(), key + " is missing");
    for (const auto place : bench::choosePlaces(info->Size, kReadSize)) {
        boost::iostreams::stream<boost::iostreams::array_sink> sink(bench::callBuffer(), kReadSize);
        client.getObject(key, sink, place, place + kReadSize - 1);
    }
}

void run(const std::vector<std::string>& arguments) {
    const auto argument = [&](std::size_t index) {
        return index < arguments.size() ? arguments[index] : std::string();
    };
    const auto threads = static_cast<std::uint32_t>(std::stoul(argument(1)));
    const auto command = argument(2);
    if (command == "read-local") {
        bench::readLocalRandomly(argument(3));
        return;
    }
    const auto client = std::make_shared<SqliteClient>(argument(0));
    if (command == "read") {
        bench::readRandomly(*bench::makeToolProvider(client, threads), argument(3));
    } else if (command == "read-range") {
        readRanges(*client, argument(3));
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
        std::cerr << "store_workload: " << failure.what() << '\n';
        return 1;
    }
}
