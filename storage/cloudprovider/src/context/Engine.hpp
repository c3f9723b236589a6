// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "buffers/PartMemory.hpp"
#include "context/FetchBudget.hpp"
#include "context/TransferPool.hpp"

#include <storage/cloudprovider/ProviderOptions.hpp>

#include <memory>

namespace storage::cloudprovider {

/// What a provider gives its open files to work with.
struct Engine {
    ProviderOptions options{};
    std::shared_ptr<TransferPool> pool{};        ///< empty: no threads
    std::shared_ptr<FetchBudget> fetchBudget{};  ///< empty with the pool
    std::shared_ptr<PartMemory> memory{};        ///< for parts; empty: they lie on the temporary disk
};

}  // namespace storage::cloudprovider
