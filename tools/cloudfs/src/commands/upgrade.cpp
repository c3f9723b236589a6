// SPDX-License-Identifier: Apache-2.0
#include "commands/upgrade.hpp"

#include "terminal/StandardOutput.hpp"

#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include <string>

namespace cloudfs::commands {

void upgrade(const Session& session, const UpgradeRequest& /*request*/) {
    const std::string& file = session.embeddedFile("upgraded");
    const bool isDone = session.namingStore([&] { return storage::cloudprovider::upgradeSqliteStore(file); });
    StandardOutput output;
    output.write(isDone ? "converted to format 2\n" : "has format 2 already\n");
    output.flush();
}

}  // namespace cloudfs::commands
