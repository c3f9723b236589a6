// SPDX-License-Identifier: Apache-2.0
#include "Session.hpp"

#include "failures.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/sqlite/SqliteClient.hpp>

#include <sys/stat.h>

#include <cerrno>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using storage::cloudprovider::CloudException;
using storage::cloudprovider::SqliteClient;

namespace {

bool isThere(const std::string& file) {
    struct stat status {};
    return ::stat(file.c_str(), &status) == 0 || errno != ENOENT;
}

std::shared_ptr<SqliteClient> openClient(const std::string& file) {
    try {
        return std::make_shared<SqliteClient>(file);
    } catch (const CloudException& failure) {
        throw Failure(failure.getErrorCode(), file, failure.what());
    }
}

}  // namespace

std::shared_ptr<IProvider> Session::open(MissingStore missing) const {
    if (missing == MissingStore::Refuse && !isThere(url.file)) {
        throw Failure(ErrorCode::NotFound, url.file, "there is no such store; put, append, touch and mkdir make one");
    }
    constexpr bool kCheckFolderOnCopy = true;
    return storage::cloudprovider::buildCloudProvider(openClient(url.file), folderPolicy, kCheckFolderOnCopy);
}

}  // namespace cloudfs
