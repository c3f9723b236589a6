// SPDX-License-Identifier: Apache-2.0
#include "maintenance.hpp"

#include "StandardOutput.hpp"

#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

namespace cloudfs {

void upgrade(const Session& session) {
    const std::string& file = session.embeddedFile("upgraded");
    const bool isDone = session.namingStore([&] { return storage::cloudprovider::upgradeSqliteStore(file); });
    StandardOutput output;
    output.write(isDone ? "converted to format 2\n" : "has format 2 already\n");
    output.flush();
}

}  // namespace cloudfs
