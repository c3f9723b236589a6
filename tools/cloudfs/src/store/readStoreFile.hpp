// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/readInPieces.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace cloudfs {

using foundation::storage::provider::IProvider;

class ProgressBar;

/// Bytes of a file; those that lie past its end are none.
struct ByteRange {
    /// Where they begin, not negative.
    std::int64_t offset = 0;
    /// How many they are; nothing: all that follow.
    std::optional<std::uint64_t> size;
};

/// Read a file of the store, or a range of it, in pieces that are given to sink.
///
/// Errors   Failure, Exception, OperationInterrupted, and what sink throws.
void readStoreFile(const IProvider& provider, const StorePath& path, const std::function<void(std::string_view)>& sink,
                   ProgressBar& progress, const ByteRange& range = {});

/// Read all of a file in pieces, in any order; sink is called by several threads at once. What progress was told is
/// taken back when it fails.
///
/// Errors   Failure, Exception, OperationInterrupted, and what sink throws.
void readStoreFileInPieces(const IProvider& provider, const StorePath& path,
                           const storage::cloudprovider::PieceSink& sink, ProgressBar& progress);

}  // namespace cloudfs
