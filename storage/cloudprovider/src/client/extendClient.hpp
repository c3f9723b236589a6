// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <memory>

namespace storage::cloudprovider {

/// The client as an ExtendedCloudClient: itself if it is one, else wrapped, with every operation's default.
std::shared_ptr<ExtendedCloudClient> extendClient(std::shared_ptr<CloudClient> client);

/// The client that the caller knows: the wrapped one of a wrapper made by extendClient, else the client itself. Two
/// wrappers of one client reach one store.
const CloudClient* originalOf(const std::shared_ptr<CloudClient>& client) noexcept;

/// Whether the client may tell versions apart; a wrapped one does not.
bool mayTellVersions(const ExtendedCloudClient& client) noexcept;

}  // namespace storage::cloudprovider
