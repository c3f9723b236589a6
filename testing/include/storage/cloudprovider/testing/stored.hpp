// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/CloudClient.hpp>
#include <storage/cloudprovider/testing/export.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace storage::cloudprovider::test {

/// An object's bytes; nothing when there is no such object.
CLOUDPROVIDER_TESTING_EXPORT std::optional<std::string> contentOf(CloudClient& store, const std::string& key);

/// All objects by their keys.
CLOUDPROVIDER_TESTING_EXPORT std::map<std::string, std::string> contentsOf(CloudClient& store);

/// Store an object, as an upload of parts of these sizes if there are any, which add up to the object's.
CLOUDPROVIDER_TESTING_EXPORT void storeObject(CloudClient& store, const std::string& key, const std::string& bytes,
                                              const std::vector<std::uint64_t>& partSizes = {});

/// The code of the host's exception, or stream failure, that action throws; nothing when it throws none.
template <typename Action>
std::optional<foundation::storage::provider::ErrorCode> errorCodeOf(Action action) {
    try {
        action();
    } catch (const foundation::storage::provider::ErrorCoded& failure) {
        return failure.getErrorCode();
    }
    return std::nullopt;
}

}  // namespace storage::cloudprovider::test
