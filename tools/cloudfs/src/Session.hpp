// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "StoreUrl.hpp"

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>

#include <memory>

namespace cloudfs {

using foundation::storage::provider::IProvider;

/// What to do about a store that is not there.
enum class MissingStore { Refuse, Create };

/// Which store a command works on, and how it shows folders. A plain value.
struct Session {
    StoreUrl url;
    storage::cloudprovider::FolderPolicy folderPolicy = storage::cloudprovider::FolderPolicy::MarkerObjects;

    /// Open the store. Errors: Failure, which names the store's file.
    std::shared_ptr<IProvider> open(MissingStore missing) const;
};

}  // namespace cloudfs
