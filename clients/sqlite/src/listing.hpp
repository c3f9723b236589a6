// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <storage/cloudprovider/CloudClient.hpp>

#include <string>
#include <vector>

namespace storage::cloudprovider::sqlite {

/// List one page, see CloudClient::listObjects; the last page is known as such when it is given.
///
/// A token names the last entry given, so objects may come and go between two pages.
/// Errors   StoreFailure for a token of another listing. SQLite::Exception.
std::vector<ObjectInfo> listPage(Connection& connection, const std::string& prefix, std::string& token,
                                 const ListOptions& options);

}  // namespace storage::cloudprovider::sqlite
