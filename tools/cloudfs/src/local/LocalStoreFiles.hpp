// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cloudfs {

/// Knows the local files that a store consists of: the database and what SQLite keeps beside it. A transfer that
/// read them would read what it writes, and one that wrote them would destroy the store.
class LocalStoreFiles {
public:
    /// None.
    LocalStoreFiles() = default;

    /// file: the store's file, which may be missing.
    explicit LocalStoreFiles(const std::string& file);

    /// Whether the path leads to one of them, whatever name it uses, or is the place where one of them will be.
    bool contain(const std::string& path) const;

    /// Errors   Failure when contain(path).
    void failIfContain(const std::string& path) const;

private:
    using Identity = std::pair<dev_t, ino_t>;

    static std::optional<Identity> identityOf(const std::string& path);

    std::optional<Identity> m_folder;
    std::vector<std::string> m_names;    // in the folder
    std::vector<Identity> m_identities;  // of those that are there
};

}  // namespace cloudfs
