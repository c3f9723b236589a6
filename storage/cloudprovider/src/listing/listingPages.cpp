// SPDX-License-Identifier: Apache-2.0
#include "listing/listingPages.hpp"

#include "support/host.hpp"
#include "support/interrupt.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>

namespace storage::cloudprovider {

std::vector<ObjectInfo> fetchPage(CloudClient& client, const std::string& prefix, std::string& token,
                                  const ListOptions& options) {
    const auto given = token;
    if (!given.empty()) {
        throwIfInterrupted();
    }
    auto page = client.listObjects(prefix, token, options);
    if (page.empty() && !token.empty() && token == given) {
        throw UnknownErrorException(host::ExceptionContext("the store does not get on with listing '" + prefix +
                                                           "': an empty page, and the same token again"));
    }
    return page;
}

void failIfNotBelow(const std::string& prefix, const std::vector<ObjectInfo>& items) {
    const bool areAllBelow = std::all_of(items.begin(), items.end(), [&](const ObjectInfo& item) {
        return item.Key.compare(0, prefix.size(), prefix) == 0;
    });
    if (!areAllBelow) {
        throw UnknownErrorException(host::ExceptionContext("the store listed keys that do not begin with " + prefix));
    }
}

}  // namespace storage::cloudprovider
