// SPDX-License-Identifier: Apache-2.0
#include "storeFile.hpp"

#include "schema.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <sqlite3.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace storage::cloudprovider::sqlite {

namespace {

// What SQLite says when it may not write the file, or cannot make those beside it.
bool isRefusal(const SQLite::Exception& error) {
    const int code = error.getErrorCode() & 0xFF;
    return code == SQLITE_READONLY || code == SQLITE_CANTOPEN || code == SQLITE_PERM;
}

bool isThere(const std::string& file) {
    return ::access(file.c_str(), F_OK) == 0;
}

bool isOnReadOnlyMount(const std::string& file) {
    struct statvfs status {};
    return ::statvfs(file.c_str(), &status) == 0 && (status.f_flag & ST_RDONLY) != 0;
}

std::unique_ptr<Connection> openToRead(const std::string& file, Access access, std::chrono::milliseconds busyTimeout) {
    auto connection = std::make_unique<Connection>(file, access, busyTimeout);
    checkSchema(*connection);
    return connection;
}

// (1) With -shm and -wal beside it, a store is read like any other, whoever writes meanwhile.
// (2) Without -shm nobody who reads could tell writers of it. On a read-only mount there are none, so the log is read
//     by who is alone with it.
// (3) Where there is no log either, the file is all there is. Where there is one, this would show old content.
std::unique_ptr<Connection> openToRead(const std::string& name, std::chrono::milliseconds busyTimeout) {
    if (::access(name.c_str(), R_OK) != 0) {
        throw SQLite::Exception("it cannot be read", SQLITE_PERM);
    }
    const std::string file = Connection(name, Access::Read, busyTimeout).file();  // SQLite resolves links
    try {
        return openToRead(file, Access::Read, busyTimeout);
    } catch (const SQLite::Exception& error) {
        if (!isRefusal(error)) {
            throw;
        }
    }
    if (!isOnReadOnlyMount(file)) {
        throw SQLite::Exception(
            "it cannot be read without the files beside it, -wal and -shm, and they cannot be made; whoever opens it "
            "with the right to write makes them",
            SQLITE_PERM);
    }
    return openToRead(file, isThere(file + "-wal") ? Access::ReadAlone : Access::ReadImmutable, busyTimeout);
}

}  // namespace

std::string toDatabaseName(const std::string& file) {
    if (file.empty() || file.find('\0') != std::string::npos) {
        throw InvalidLocationException(
            foundation::storage::provider::ExceptionContext("a store needs the path of a file"));
    }
    return file.front() == ':' || file.compare(0, 5, "file:") == 0 ? "./" + file : file;
}

std::unique_ptr<Connection> openStore(const std::string& name, bool mayCreate, std::chrono::milliseconds busyTimeout) {
    try {
        auto connection = std::make_unique<Connection>(name, mayCreate ? Access::Create : Access::Change, busyTimeout);
        openSchema(*connection, busyTimeout);
        return connection;
    } catch (const SQLite::Exception& error) {
        if (!isRefusal(error) || !isThere(name)) {
            throw;
        }
    }
    return openToRead(name, busyTimeout);
}

}  // namespace storage::cloudprovider::sqlite
