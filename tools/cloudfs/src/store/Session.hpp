// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StoreUrl.hpp"
#include "store/TrafficReport.hpp"

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/ExtendedCloudClient.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace cloudfs {

using foundation::storage::provider::IProvider;

/// What to do about a store that is not there.
enum class MissingStore { Refuse, Create };

/// Which store a command works on, and how it shows folders. A plain value.
struct Session {
    StoreUrl url;
    storage::cloudprovider::FolderPolicy folderPolicy = storage::cloudprovider::FolderPolicy::MarkerObjects;

    /// Bytes of the parts of files that are written, and those kept of each file that is read; nothing: what the
    /// environment tells, see ProviderOptions.
    std::optional<std::uint64_t> partSize = std::nullopt;
    std::optional<std::uint64_t> cacheSize = std::nullopt;

    /// Told of the client that is opened, to show its traffic; empty where nobody wants to know.
    std::shared_ptr<TrafficReport> traffic;

    /// Open the store. Errors: Failure, which names the store.
    std::shared_ptr<IProvider> open(MissingStore missing) const;

    /// The same in two steps, for who puts something in between. Errors: as open.
    std::shared_ptr<storage::cloudprovider::ExtendedCloudClient> openClient(MissingStore missing) const;
    std::shared_ptr<IProvider> providerFor(std::shared_ptr<storage::cloudprovider::CloudClient> client) const;

    /// Whether there is a store; an empty file is none yet.
    bool hasStore() const;

    /// Run an action on the store: CloudExceptions become Failures, which name the store.
    template <typename Action>
    auto namingStore(const Action& action) const {
        try {
            return action();
        } catch (const storage::cloudprovider::CloudException& failure) {
            throwFailure(failure);
        }
    }

    /// The file of the embedded store.
    ///
    /// Errors   UsageError, with what only an embedded store can do, for any other; Failure when there is none.
    const std::string& embeddedFile(const std::string& ability) const;

private:
    [[noreturn]] void throwFailure(const storage::cloudprovider::CloudException& failure) const;
    void failWhenMissing() const;
    void failUnlessPlaceForFile() const;
};

}  // namespace cloudfs
