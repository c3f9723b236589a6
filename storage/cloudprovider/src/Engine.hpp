// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "TransferPool.hpp"

#include <storage/cloudprovider/ProviderOptions.hpp>

#include <memory>

namespace storage::cloudprovider {

/// What a provider gives its open files to work with.
struct Engine {
    ProviderOptions options{};
    std::shared_ptr<TransferPool> pool{};  ///< empty: no threads
};

}  // namespace storage::cloudprovider
