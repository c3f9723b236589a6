// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include "Connection.hpp"
#include "errors.hpp"
#include "schema.hpp"
#include "storeFile.hpp"

namespace storage::cloudprovider {

bool upgradeSqliteStore(const std::string& file, const SqliteOptions& options) {
    const std::string name = sqlite::toDatabaseName(file);
    return sqlite::translateErrors([&] { return "cannot upgrade the store " + name; },
                                   [&] {
                                       sqlite::Connection connection(name, false, options.BusyTimeout);
                                       return sqlite::upgradeSchema(connection);
                                   });
}

}  // namespace storage::cloudprovider
