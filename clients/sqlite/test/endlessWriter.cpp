// SPDX-License-Identifier: Apache-2.0
// Replaces two objects of a store with newer and newer versions, one by puts, one by uploads that send a
// version and copy the one before. Tells on standard output what is done. Arguments: the file, the stored
// versions.
#include "storing.hpp"

#include <unistd.h>

int main(int, char** arguments) {
    using namespace storage::cloudprovider::test;
    storage::cloudprovider::SqliteClient client(arguments[1]);
    int putVersion = 0;
    int uploadVersion = 0;
    std::istringstream(arguments[2]) >> putVersion >> uploadVersion;
    do {
        put(client, "put", makeVersion(++putVersion));
        if (::write(STDOUT_FILENO, "p", 1) != 1) {
            break;
        }
        const std::string id = client.startMultipartUpload("k", {});
        std::vector<storage::cloudprovider::PartInfo> parts;
        send(client, id, parts, makeVersion(uploadVersion + 1));
        if (uploadVersion > 0) {
            copy(client, id, parts, 0, makeVersion(uploadVersion).size());
        }
        client.completeMultipartUpload("k", id, parts);
        ++uploadVersion;
    } while (::write(STDOUT_FILENO, "u", 1) == 1);
}
