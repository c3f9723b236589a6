// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/CloudClient.hpp>

#include <string>
#include <vector>

namespace storage::cloudprovider {

/// Fetch one page of a listing: the first for an empty token, else the one that token stands for, which then stands for
/// the next one; empty again after the last.
///
/// A page may be empty while token is not.
/// Errors   OperationInterrupted instead of asking for a further page: an answer that has arrived counts.
///          UnknownErrorException when the store answers with an empty page and the token it was given, which could go
///          on for ever. Else whatever the client throws.
std::vector<ObjectInfo> fetchPage(CloudClient& client, const std::string& prefix, std::string& token,
                                  const ListOptions& options);

/// Throw UnknownErrorException when any item's key does not begin with prefix: a store that answers with somebody
/// else's keys must not have them shown under false names, or deleted.
void failIfNotBelow(const std::string& prefix, const std::vector<ObjectInfo>& items);

}  // namespace storage::cloudprovider
