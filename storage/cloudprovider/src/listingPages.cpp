// SPDX-License-Identifier: Apache-2.0
#include "listingPages.hpp"

#include "interrupt.hpp"

#include <storage/cloudprovider/CloudException.hpp>

namespace storage::cloudprovider {

using foundation::storage::provider::ExceptionContext;

std::vector<ObjectInfo> fetchPage(CloudClient& client, const std::string& prefix, std::string& token,
                                  const ListOptions& options) {
    const auto given = token;
    if (!given.empty()) {
        throwIfInterrupted();
    }
    auto page = client.listObjects(prefix, token, options);
    if (page.empty() && !token.empty() && token == given) {
        throw UnknownErrorException(ExceptionContext("the store does not get on with listing '" + prefix +
                                                     "': an empty page, and the same token again"));
    }
    return page;
}

}  // namespace storage::cloudprovider
