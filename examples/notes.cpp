// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/sqlite/SqliteClient.hpp>

#include <iostream>

using foundation::storage::provider::StorageIRI;
using namespace storage::cloudprovider;

int main() {
    const auto store = std::make_shared<SqliteClient>("notes.db");
    const auto provider = buildCloudProvider(store, FolderPolicy::MarkerObjects, true);
    const StorageIRI file(u"/notes/today.txt");

    const auto writer = provider->openStream(file, {});
    writer->write("Remember the milk\n", 18);
    writer->close();  // the bytes reach the store here

    char bytes[64];
    const auto reader = provider->openReadOnlyStream(file);
    std::cout.write(bytes, reader->read(bytes, sizeof(bytes)));
}
