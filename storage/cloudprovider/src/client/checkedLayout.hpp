// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/PartInfo.hpp>

#include <string>
#include <vector>

namespace storage::cloudprovider {

/// Put the parts that a client described in order and number them. Throws UnknownErrorException, naming the
/// key, unless they follow each other without gap or overlap from offset 0 on.
std::vector<PartInfo> checkedLayout(std::vector<PartInfo> parts, const std::string& key);

}  // namespace storage::cloudprovider
