// SPDX-License-Identifier: Apache-2.0
// folder_notes FOLDER TEXT: adds a line to a file in a store in that folder, and shows the file.
#include "FolderClient.hpp"

#include <storage/cloudprovider/buildCloudProvider.hpp>

#include <array>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::StorageIRI;
using namespace storage::cloudprovider;

namespace {

void addAndShow(const std::string& folder, const std::string& line) {
    const auto store = std::make_shared<example::FolderClient>(folder);
    const auto provider = buildCloudProvider(store, FolderPolicy::MarkerObjects, true);
    const StorageIRI file(u"/notes/today.txt");

    ByteStreamOpenOptions keepAndAppend;
    keepAndAppend.existingContent = ByteStreamOpenOptions::ExistingContent::Preserve;
    keepAndAppend.writeMode = ByteStreamOpenOptions::WriteMode::Append;
    const auto writer = provider->openStream(file, keepAndAppend);
    writer->write(line.data(), static_cast<std::int64_t>(line.size()));
    writer->close();

    const auto reader = provider->openReadOnlyStream(file);
    std::array<char, 4096> bytes{};
    for (auto count = reader->read(bytes.data(), bytes.size()); count > 0;
         count = reader->read(bytes.data(), bytes.size())) {
        std::cout.write(bytes.data(), count);
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 3) {
        std::cerr << "usage: folder_notes FOLDER TEXT\n";
        return 2;
    }
    try {
        addAndShow(argv[1], argv[2] + std::string("\n"));
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
