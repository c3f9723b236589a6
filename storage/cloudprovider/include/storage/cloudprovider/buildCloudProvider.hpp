// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/CloudClient.hpp>
#include <storage/cloudprovider/ProviderOptions.hpp>
#include <storage/cloudprovider/export.hpp>

#include <cstdint>
#include <memory>

namespace storage::cloudprovider {

/// How a store without folders shows folders.
enum class FolderPolicy : std::uint32_t {
    /// A folder is an empty object whose key ends in "/"; folders can be made and removed.
    MarkerObjects = 0,
    /// A folder is there as long as an object is below it; folders cannot be made, and only be removed with contents.
    ImplicitFolders = 1
};

/// Make a provider that shows what client reaches as files and folders.
///
/// Values   client must not be empty; the provider and its open files share it. checkFolderOnCopy: copying onto an
///          existing folder is refused.
/// Errors   none but std::bad_alloc; the store is not asked anything.
/// Threads  any. The provider holds no state that changes, see IProvider.
CLOUDPROVIDER_EXPORT std::shared_ptr<foundation::storage::provider::IProvider> buildCloudProvider(
    std::shared_ptr<CloudClient> client, FolderPolicy policy, bool checkFolderOnCopy);

/// The same, with options of how bytes are transferred and kept.
CLOUDPROVIDER_EXPORT std::shared_ptr<foundation::storage::provider::IProvider> buildCloudProvider(
    std::shared_ptr<CloudClient> client, FolderPolicy policy, bool checkFolderOnCopy, const ProviderOptions& options);

}  // namespace storage::cloudprovider
