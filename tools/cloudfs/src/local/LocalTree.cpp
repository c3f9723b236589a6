// SPDX-License-Identifier: Apache-2.0
#include "local/LocalTree.hpp"

#include "local/LocalStoreFiles.hpp"
#include "terminal/escapeText.hpp"
#include "terminal/failures.hpp"

#include <foundation/services/InterruptState.hpp>

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <iostream>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;

namespace {

struct stat statusOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        throwLocalFailure(path, errno);
    }
    return status;
}

bool isLink(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        throwLocalFailure(path, errno);
    }
    return S_ISLNK(status.st_mode);
}

std::vector<std::string> sortedNames(const std::string& folder) {
    std::vector<std::string> names;
    try {
        for (const auto& entry : boost::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().native());
        }
    } catch (const boost::filesystem::filesystem_error& error) {
        throwLocalFailure(folder, error.code().value());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class Scan {
public:
    Scan(const LocalStoreFiles& storeFiles, const ScanOptions& options)
        : m_storeFiles(storeFiles), m_options(options) {}

    // prefix is what the names of entries begin with: empty, or ending in "/".
    void enter(const std::string& folder, const std::string& prefix) {
        const auto status = statusOf(folder);
        const Identity identity{status.st_dev, status.st_ino};
        if (std::find(m_open.begin(), m_open.end(), identity) != m_open.end()) {
            throw Failure(ErrorCode::InvalidLocation, folder, "the link leads back to a folder above it");
        }
        const auto names = sortedNames(folder);
        m_open.push_back(identity);
        for (const auto& name : names) {
            try {
                add(folder.back() == '/' ? folder + name : folder + "/" + name, prefix + name);
            } catch (const Failure&) {
                m_options.onFailure(std::current_exception());
            }
        }
        m_open.pop_back();
    }

    LocalScan take() { return std::move(m_scan); }

private:
    using Identity = std::pair<dev_t, ino_t>;

    void add(const std::string& path, const std::string& name) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        if (m_options.isExcluded && m_options.isExcluded(name)) {
            return;
        }
        if (m_storeFiles.contain(path)) {
            std::cerr << escapeText(path) << ": skipped, it is the store itself\n";
            m_scan.leftOut.push_back(name);
            return;
        }
        failUnlessUtf8(path);
        if (m_options.links != Links::Follow && isLink(path)) {
            leaveOut(path);
            m_scan.leftOut.push_back(name);
            return;
        }
        const auto status = statusOf(path);
        if (S_ISREG(status.st_mode)) {
            m_scan.entries.push_back({path, name, false, static_cast<std::uint64_t>(status.st_size), status.st_mtim});
        } else if (S_ISDIR(status.st_mode)) {
            m_scan.entries.push_back({path, name, true});
            enter(path, name + "/");
        } else {
            throw Failure(ErrorCode::Unsupported, path, "neither a file nor a folder");
        }
    }

    void leaveOut(const std::string& path) const {
        if (m_options.links == Links::Fail) {
            throw Failure(ErrorCode::Unsupported, path, "is a symbolic link");
        }
        std::cerr << escapeText(path) << ": skipped, it is a symbolic link (see --links)\n";
    }

    const LocalStoreFiles& m_storeFiles;
    const ScanOptions& m_options;
    LocalScan m_scan;
    std::vector<Identity> m_open;  // the folders being scanned, outermost first
};

}  // namespace

bool isLocalFolder(const std::string& path) {
    return S_ISDIR(statusOf(path).st_mode);
}

LocalScan scanLocalFolder(const std::string& path, const LocalStoreFiles& storeFiles, const ScanOptions& options) {
    Scan scan(storeFiles, options);
    scan.enter(path, "");
    return scan.take();
}

}  // namespace cloudfs
