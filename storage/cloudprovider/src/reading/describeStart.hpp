// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/OpenFileContext.hpp"

#include <cstdint>
#include <string>

namespace storage::cloudprovider {

/// What looking an object up to read all of it tells. A plain value.
struct StoredStart {
    std::uint64_t size = 0;  ///< of the object
    std::string bytes{};     ///< the first ones, as far as they came along: none, or all of a small object
};

/// Look up what a file is to be read from; its version is the context's from now on. ResourceNotFoundException when
/// there is none.
StoredStart describeStart(OpenFileContext& context);

}  // namespace storage::cloudprovider
