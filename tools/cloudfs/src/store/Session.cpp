// SPDX-License-Identifier: Apache-2.0
#include "store/Session.hpp"

#include "terminal/failures.hpp"

#include <storage/cloudprovider/sqlite/SqliteClient.hpp>
#ifdef CLOUDFS_WITH_S3
#include <storage/cloudprovider/s3/S3Client.hpp>
#endif

#include <sys/stat.h>
#include <unistd.h>
#include <boost/filesystem/path.hpp>

#include <cerrno>
#include <string>
#include <utility>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using storage::cloudprovider::CloudClient;
using storage::cloudprovider::CloudException;
using storage::cloudprovider::ExtendedCloudClient;
using storage::cloudprovider::SqliteClient;

namespace {

// Nine parts of 8 MiB for each of a few files that are read, two of 5 MiB for each of many that are written.
constexpr std::uint64_t kPartMemory = std::uint64_t{256} * 1024 * 1024;

std::string folderOf(const std::string& file) {
    const boost::filesystem::path path(file);
    return path.has_parent_path() ? path.parent_path().native() : ".";
}

}  // namespace

bool Session::hasStore() const {
    if (url.isBucket()) {
        return true;  // whether it is there shows when it is asked
    }
    struct stat status {};
    if (::stat(url.file.c_str(), &status) != 0) {
        return errno != ENOENT;
    }
    return !S_ISREG(status.st_mode) || status.st_size > 0;
}

// What SQLite would only call "unable to open database file".
void Session::failUnlessPlaceForFile() const {
    struct stat status {};
    if (::stat(url.file.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) {
            throw Failure(ErrorCode::InvalidLocation, url.file, "is a folder; a store is a file");
        }
    } else if (errno != ENOENT) {
        throwLocalFailure(url.file, errno);
    } else if (const auto folder = folderOf(url.file); ::access(folder.c_str(), W_OK | X_OK) != 0) {
        throwLocalFailure(errno == ENOENT ? url.file : folder, errno);
    }
}

void Session::failWhenMissing() const {
    if (!hasStore()) {
        throw Failure(ErrorCode::NotFound, url.file,
                      "there is no such store; put, append, touch, mkdir and mount make one");
    }
}

void Session::throwFailure(const CloudException& failure) const {
    throw Failure(failure.getErrorCode(), url.name(), failure.what());
}

const std::string& Session::embeddedFile(const std::string& ability) const {
    if (url.isBucket()) {
        throw UsageError("only an embedded store, sqlite:FILE, can be " + ability + ", not: " + url.name());
    }
    failWhenMissing();
    return url.file;
}

std::shared_ptr<ExtendedCloudClient> Session::openClient(MissingStore missing) const {
    if (missing == MissingStore::Refuse) {
        failWhenMissing();
    }
    if (!url.isBucket()) {
        failUnlessPlaceForFile();
    }
    return namingStore([this]() -> std::shared_ptr<ExtendedCloudClient> {
#ifdef CLOUDFS_WITH_S3
        if (url.isBucket()) {
            storage::cloudprovider::S3Options options;
            options.Bucket = url.bucket;
            options.KeyPrefix = url.prefix;
            auto client = std::make_shared<storage::cloudprovider::S3Client>(options);
            if (traffic) {
                traffic->of(client);
            }
            return client;
        }
#endif
        return std::make_shared<SqliteClient>(url.file);
    });
}

std::shared_ptr<IProvider> Session::providerFor(std::shared_ptr<CloudClient> client) const {
    constexpr bool kCheckFolderOnCopy = true;
    storage::cloudprovider::ProviderOptions options;
    options.transferThreads = 8;
    options.readAheadParts = 8;
    options.partSize = partSize;
    options.cacheSize = cacheSize;
    options.lightBuffers = true;
    options.partMemory = kPartMemory;
    options.copyInStore = true;
    options.moveOrder = storage::cloudprovider::MoveOrder::StoreDestinationFirst;
    return storage::cloudprovider::buildCloudProvider(std::move(client), folderPolicy, kCheckFolderOnCopy, options);
}

std::shared_ptr<IProvider> Session::open(MissingStore missing) const {
    return providerFor(openClient(missing));
}

}  // namespace cloudfs
