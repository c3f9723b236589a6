// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include "Connection.hpp"
#include "Verification.hpp"
#include "errors.hpp"
#include "schema.hpp"
#include "storeFile.hpp"

namespace storage::cloudprovider {

bool upgradeSqliteStore(const std::string& file, const SqliteOptions& options) {
    const std::string name = sqlite::toDatabaseName(file);
    return sqlite::translateErrors([&] { return "cannot upgrade the store " + name; },
                                   [&] {
                                       sqlite::Connection connection(name, sqlite::Access::Change, options.BusyTimeout);
                                       return sqlite::upgradeSchema(connection);
                                   });
}

VerificationResult verifySqliteStore(const std::string& file, const std::string& key,
                                     const VerificationObserver& observer, const SqliteOptions& options) {
    const std::string name = sqlite::toDatabaseName(file);
    const auto describe = [&] { return "cannot verify the store " + name; };
    return sqlite::translateErrors(describe, [&] {
        const auto connection = sqlite::openStore(name, false, options.BusyTimeout);
        sqlite::Verification verification(*connection, observer);
        if (key.empty()) {
            verification.readObjects({});
            verification.readRest();
        } else {
            verification.readObject(key);
            verification.readObjects(key.back() == '/' ? key : key + '/');
        }
        return verification.result();
    });
}

}  // namespace storage::cloudprovider
