// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"
#include "terminal/ProgressBar.hpp"

#include <foundation/storage/provider/IProvider.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace cloudfs {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::IProvider;

class LocalSource;

/// Refuse a path that can only mean a folder. Errors: Failure.
void failIfMeansFolder(const StorePath& path);

/// Refuse a path where there is a folder, and no file. Errors: Failure, Exception.
void failIfFolder(const IProvider& provider, const StorePath& path);

/// The size of a file of the store, where the store tells it. Errors: Failure for a folder, Exception.
std::optional<std::uint64_t> sizeOf(const IProvider& provider, const StorePath& path);

/// Refuse a path that can only mean a folder, for a file without a name of its own. Errors: UsageError.
void failUnlessNameable(const StorePath& path, const std::string& name);

/// Where a file copied or moved to path goes: into the folder, if there is one or only one can be meant, else
/// to path itself. name is the file's own one. Errors: UsageError when it has none but needs one, Exception.
StorePath placeFor(const IProvider& provider, const StorePath& path, const std::string& name);

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

    /// Write the rest of source. Result: the bytes written. Errors: Failure, OperationInterrupted.
    std::uint64_t writeAll(LocalSource& source, ProgressBar& progress);

    /// Store the changes; the last call. Errors: Failure, OperationInterrupted.
    void store(ProgressBar& progress);

private:
    void write(std::string_view data);

    const StorePath m_path;
    std::unique_ptr<ByteStream> m_stream;
};

/// Read a whole file of the store, in pieces that are given to sink.
///
/// Errors   Failure, Exception, OperationInterrupted, and what sink throws.
void readStoreFile(const IProvider& provider, const StorePath& path, const std::function<void(std::string_view)>& sink,
                   ProgressBar& progress);

}  // namespace cloudfs
