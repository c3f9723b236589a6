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
    Scan(const LocalStoreFiles& storeFiles, Links links, const std::function<void(std::exception_ptr)>& onFailure)
        : m_storeFiles(storeFiles), m_links(links), m_onFailure(onFailure) {}

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
                m_onFailure(std::current_exception());
            }
        }
        m_open.pop_back();
    }

    std::vector<LocalEntry> takeEntries() { return std::move(m_entries); }

private:
    using Identity = std::pair<dev_t, ino_t>;

    void add(const std::string& path, const std::string& name) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        if (m_storeFiles.contain(path)) {
            std::cerr << escapeText(path) << ": skipped, it is the store itself\n";
            return;
        }
        failUnlessUtf8(path);
        if (m_links != Links::Follow && isLink(path)) {
            leaveOut(path);
            return;
        }
        const auto status = statusOf(path);
        if (S_ISREG(status.st_mode)) {
            m_entries.push_back({path, name, false, static_cast<std::uint64_t>(status.st_size), status.st_mtim});
        } else if (S_ISDIR(status.st_mode)) {
            m_entries.push_back({path, name, true});
            enter(path, name + "/");
        } else {
            throw Failure(ErrorCode::Unsupported, path, "neither a file nor a folder");
        }
    }

    void leaveOut(const std::string& path) const {
        if (m_links == Links::Fail) {
            throw Failure(ErrorCode::Unsupported, path, "is a symbolic link");
        }
        std::cerr << escapeText(path) << ": skipped, it is a symbolic link (see --links)\n";
    }

    const LocalStoreFiles& m_storeFiles;
    const Links m_links;
    const std::function<void(std::exception_ptr)>& m_onFailure;
    std::vector<LocalEntry> m_entries;
    std::vector<Identity> m_open;  // the folders being scanned, outermost first
};

}  // namespace

bool isLocalFolder(const std::string& path) {
    return S_ISDIR(statusOf(path).st_mode);
}

std::vector<LocalEntry> scanLocalFolder(const std::string& path, const LocalStoreFiles& storeFiles, Links links,
                                        const std::function<void(std::exception_ptr)>& onFailure) {
    Scan scan(storeFiles, links, onFailure);
    scan.enter(path, "");
    return scan.takeEntries();
}

}  // namespace cloudfs
