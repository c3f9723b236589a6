// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/sqlite/SqliteClient.hpp>

#include <iostream>

using namespace foundation::storage::provider;
using namespace storage::cloudprovider;

int main() {
    const auto provider =
        buildCloudProvider(std::make_shared<SqliteClient>("consumer.db"), FolderPolicy::MarkerObjects, true);
    const auto writer = provider->openStream(StorageIRI(u"/notes/today.txt"), {});
    writer->write("Remember the milk\n", 18);
    writer->close();

    char bytes[64];
    const auto reader = provider->openReadOnlyStream(StorageIRI(u"/notes/today.txt"));
    std::cout.write(bytes, reader->read(bytes, sizeof(bytes)));
    try {
        provider->openReadOnlyStream(StorageIRI(u"/notes/tomorrow.txt"));
    } catch (const Exception& error) {
        return error.getErrorCode() == ErrorCode::NotFound ? 0 : 1;
    }
    return 1;
}
