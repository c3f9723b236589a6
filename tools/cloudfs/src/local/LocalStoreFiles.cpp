// SPDX-License-Identifier: Apache-2.0
#include "local/LocalStoreFiles.hpp"

#include "terminal/failures.hpp"

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

#include <sys/stat.h>

#include <algorithm>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;

namespace {

// SQLite resolves links before it names the files beside the database (sqlite.org/tempfiles.html).
boost::filesystem::path resolve(const std::string& file) {
    boost::system::error_code error;
    const auto resolved = boost::filesystem::canonical(file, error);
    return error ? boost::filesystem::path(file) : resolved;
}

std::string folderOf(const boost::filesystem::path& path) {
    return path.has_parent_path() ? path.parent_path().native() : ".";
}

}  // namespace

LocalStoreFiles::LocalStoreFiles(const std::string& file) {
    const auto resolved = resolve(file);
    m_folder = identityOf(folderOf(resolved));
    for (const char* const suffix : {"", "-wal", "-shm", "-journal", "-reserve"}) {
        m_names.push_back(resolved.filename().native() + suffix);
        if (const auto identity = identityOf(resolved.native() + suffix)) {
            m_identities.push_back(*identity);
        }
    }
}

bool LocalStoreFiles::contain(const std::string& path) const {
    const auto identity = identityOf(path);
    if (identity && std::find(m_identities.begin(), m_identities.end(), *identity) != m_identities.end()) {
        return true;
    }
    const boost::filesystem::path place(path);
    const bool hasName = std::find(m_names.begin(), m_names.end(), place.filename().native()) != m_names.end();
    return hasName && m_folder && identityOf(folderOf(place)) == m_folder;
}

void LocalStoreFiles::failIfContain(const std::string& path) const {
    if (contain(path)) {
        throw Failure(ErrorCode::InvalidLocation, path, "is the store itself");
    }
}

std::optional<LocalStoreFiles::Identity> LocalStoreFiles::identityOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return Identity{status.st_dev, status.st_ino};
}

}  // namespace cloudfs
