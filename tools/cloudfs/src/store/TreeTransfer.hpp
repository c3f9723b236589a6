// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace cloudfs {

using foundation::storage::provider::IProvider;

class ProgressBar;

/// A folder of the store whose content is copied to another one, and may be removed when all of it is there. Whatever
/// ends it, and whenever, each file is whole at one of its places or at both.
///
/// Errors   Failure, Exception; OperationInterrupted between two files. One thread.
class TreeTransfer {
public:
    /// List the source.
    ///
    /// Values   provider: one over client, which both outlive this. to: neither of the two is the other, or below it.
    /// Errors   InvalidLocation when something in the folder has a name that no path can have.
    TreeTransfer(std::shared_ptr<storage::cloudprovider::ExtendedCloudClient> client, const IProvider& provider,
                 StorePath from, StorePath to);

    /// Bytes of all files.
    std::uint64_t size() const noexcept { return m_size; }

    /// Refuse a destination that has a file already where one of the files would go. Errors: AlreadyExists.
    void failIfTaken() const;

    /// Copy everything, inside the store where it can. A file that is replaced keeps its old content until the new one
    /// is stored. What was copied before a failure stays.
    ///
    /// Values   mayReplace: else a file that came to the destination meanwhile is a failure.
    void copy(bool mayReplace, ProgressBar& progress);

    /// Remove what was copied, each object in the version that was; the last call, after copy.
    ///
    /// Errors   InUse, when all else is done, with the paths of what was changed or added meanwhile, which stays.
    void removeSource(ProgressBar& progress);

private:
    struct Object {
        std::string name;  // after the folder's key and its "/"; that of a folder's marker ends in "/" or is empty
        std::uint64_t size = 0;
        std::string version;  // that was copied; known from then on

        bool isMarker() const noexcept { return name.empty() || name.back() == '/'; }
    };

    std::vector<Object> list(const StorePath& folder) const;
    std::string describeVersion(const StorePath& path, const std::string& key) const;
    void copyFile(Object& file, bool mayReplace) const;
    void copyMarker(Object& marker) const;
    bool isRemoved(const Object& object) const;
    void removeMarkers(std::vector<std::string>& left) const;

    const std::shared_ptr<storage::cloudprovider::ExtendedCloudClient> m_client;
    const IProvider& m_provider;
    const StorePath m_from;
    const StorePath m_to;
    std::vector<Object> m_objects;  // in the order of their names, so that a folder comes before what it holds
    std::uint64_t m_size = 0;
};

}  // namespace cloudfs
