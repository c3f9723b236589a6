// SPDX-License-Identifier: Apache-2.0
#include "client/checkedLayout.hpp"

#include "support/host.hpp"
#include "support/saturatingAdd.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>
#include <sstream>
#include <tuple>

namespace storage::cloudprovider {

std::vector<PartInfo> checkedLayout(std::vector<PartInfo> parts, const std::string& key) {
    // By size, too: a part without bytes has the offset of the one after it.
    std::stable_sort(parts.begin(), parts.end(), [](const PartInfo& left, const PartInfo& right) {
        return std::tie(left.Offset, left.Size) < std::tie(right.Offset, right.Size);
    });
    std::uint64_t index = 0;
    std::uint64_t offset = 0;
    for (auto& part : parts) {
        if (part.Offset != offset || part.Size > remainingAfter(offset)) {
            std::ostringstream text;
            text << "the store's parts of " << key << " do not follow each other: " << part << " instead of offset "
                 << offset;
            throw UnknownErrorException(host::ExceptionContext(text.str()));
        }
        offset += part.Size;
        part.Index = index++;
    }
    return parts;
}

}  // namespace storage::cloudprovider
