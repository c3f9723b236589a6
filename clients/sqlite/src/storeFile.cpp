// SPDX-License-Identifier: Apache-2.0
#include "storeFile.hpp"

#include "schema.hpp"

#include <storage/cloudprovider/CloudException.hpp>

namespace storage::cloudprovider::sqlite {

std::string toDatabaseName(const std::string& file) {
    if (file.empty() || file.find('\0') != std::string::npos) {
        throw InvalidLocationException(
            foundation::storage::provider::ExceptionContext("a store needs the path of a file"));
    }
    return file.front() == ':' || file.compare(0, 5, "file:") == 0 ? "./" + file : file;
}

std::unique_ptr<Connection> openStore(const std::string& name, bool mayCreate, std::chrono::milliseconds busyTimeout) {
    auto connection = std::make_unique<Connection>(name, mayCreate, busyTimeout);
    openSchema(*connection, busyTimeout);
    return connection;
}

}  // namespace storage::cloudprovider::sqlite
