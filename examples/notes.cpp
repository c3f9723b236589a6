// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/sqlite/SqliteClient.hpp>

#include <iostream>

using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::StorageIRI;
using namespace storage::cloudprovider;

int main() {
    const auto store = std::make_shared<SqliteClient>("notes.db");
    const auto provider = buildCloudProvider(store, FolderPolicy::MarkerObjects, true);
    const StorageIRI file(u"/notes/today.txt");

    const auto writer = provider->openStream(file, {});  // anew: what the file held is discarded
    writer->write("Remember the milk\n", 18);
    writer->close();  // the bytes reach the store here; throws when they do not

    const ByteStreamOpenOptions keeping{.existingContent = ByteStreamOpenOptions::ExistingContent::Preserve};
    const auto appender = provider->openStream(file, keeping);  // what it holds stays, and this follows
    appender->write("and the bread\n", 14);
    appender->close();

    char bytes[64];
    const auto reader = provider->openReadOnlyStream(file);
    std::cout.write(bytes, reader->read(bytes, sizeof(bytes)));
}
