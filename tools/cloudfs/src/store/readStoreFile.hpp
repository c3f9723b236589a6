// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>

#include <functional>
#include <string_view>

namespace cloudfs {

using foundation::storage::provider::IProvider;

class ProgressBar;

/// Read a whole file of the store, in pieces that are given to sink.
///
/// Errors   Failure, Exception, OperationInterrupted, and what sink throws.
void readStoreFile(const IProvider& provider, const StorePath& path, const std::function<void(std::string_view)>& sink,
                   ProgressBar& progress);

}  // namespace cloudfs
