// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>

#include <cstdint>
#include <memory>
#include <string_view>

namespace cloudfs {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::IProvider;

class ProgressBar;

/// Changes one file of the store. The changes are given up unless store() is reached: a transfer that fails
/// or is interrupted leaves the file as it was.
class StoreFileWriter {
public:
    /// Write the file anew, from its beginning to its end. Errors: Exception.
    StoreFileWriter(const IProvider& provider, StorePath path);

    /// Write into the file. Errors: Exception.
    StoreFileWriter(const IProvider& provider, StorePath path, const ByteStreamOpenOptions& options);
    StoreFileWriter(const StoreFileWriter&) = delete;
    StoreFileWriter& operator=(const StoreFileWriter&) = delete;
    ~StoreFileWriter();

    /// Move to offset bytes from the beginning. Errors: Failure.
    void seek(std::int64_t offset);

    /// Write all of data. Errors: Failure.
    void write(std::string_view data);

    /// Store the changes; the last call. Errors: Failure, OperationInterrupted.
    void store(ProgressBar& progress);

private:
    const StorePath m_path;
    std::unique_ptr<ByteStream> m_stream;
};

}  // namespace cloudfs
