// SPDX-License-Identifier: Apache-2.0
#include "store/readStoreFile.hpp"

#include "store/operands.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/openSequentialReader.hpp>

#include <algorithm>
#include <atomic>
#include <ios>
#include <limits>
#include <memory>
#include <vector>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using storage::cloudprovider::openSequentialReader;
using storage::cloudprovider::PieceSink;
using storage::cloudprovider::readInPieces;

namespace {

// Between two chunks an interrupt is noticed.
constexpr std::size_t kChunkSize = 256 * 1024;

// Begin to read; what is not a file may be a folder.
template <typename Operation>
auto readingFile(const IProvider& provider, const StorePath& path, Operation operation) {
    failIfMeansFolder(path);
    try {
        return operation();
    } catch (const Exception& failure) {
        if (failure.getErrorCode() == ErrorCode::NotFound) {
            failIfFolder(provider, path);
        }
        throw;
    }
}

}  // namespace

void readStoreFile(const IProvider& provider, const StorePath& path, const std::function<void(std::string_view)>& sink,
                   ProgressBar& progress, const ByteRange& range) {
    const bool isWhole = range.offset == 0 && !range.size;
    const auto stream = readingFile(provider, path, [&] {
        return isWhole ? openSequentialReader(provider, path.iri()) : provider.openReadOnlyStream(path.iri());
    });
    std::vector<char> buffer(kChunkSize);
    if (range.offset > 0) {
        namingPath(path.text(), [&] { stream->seek(range.offset, std::ios_base::beg); });
    }
    auto left = range.size.value_or(std::numeric_limits<std::uint64_t>::max());
    while (left > 0) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        const auto wanted = static_cast<std::int64_t>(std::min<std::uint64_t>(left, buffer.size()));
        const auto count = namingPath(path.text(), [&] { return stream->read(buffer.data(), wanted); });
        if (count < 0) {
            break;
        }
        left -= static_cast<std::uint64_t>(count);
        sink({buffer.data(), static_cast<std::size_t>(count)});
        progress.advance(static_cast<std::uint64_t>(count));
    }
    namingPath(path.text(), [&] { stream->close(); });
}

void readStoreFileInPieces(const IProvider& provider, const StorePath& path, const PieceSink& sink,
                           ProgressBar& progress) {
    std::atomic<std::uint64_t> done{0};
    const auto counted = [&](std::uint64_t offset, std::string_view data) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        sink(offset, data);
        done += data.size();
        progress.advance(data.size());
    };
    try {
        readingFile(provider, path, [&] { readInPieces(provider, path.iri(), counted); });
    } catch (...) {
        progress.retreat(done);
        throw;
    }
}

}  // namespace cloudfs
