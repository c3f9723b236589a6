// SPDX-License-Identifier: Apache-2.0
#include "reading/describeStart.hpp"

#include "client/checkedLayout.hpp"
#include "support/tuning.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <utility>

namespace storage::cloudprovider {

StoredStart describeStart(OpenFileContext& context) {
    StoredStart start;
    auto stored = context.client->describeWithStart(context.key, kMostStart, start.bytes);
    if (!stored) {
        throw ResourceNotFoundException();
    }
    const auto layout = checkedLayout(std::move(stored->Parts), context.key);
    start.size = layout.empty() ? 0 : layout.back().Offset + layout.back().Size;
    if (start.bytes.size() > start.size) {
        start.bytes.resize(start.size);
    }
    context.version.editOf(std::move(stored->Version));
    return start;
}

}  // namespace storage::cloudprovider
