// SPDX-License-Identifier: Apache-2.0
#include "store/readStoreFile.hpp"

#include "store/operands.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/openSequentialReader.hpp>

#include <algorithm>
#include <ios>
#include <limits>
#include <memory>
#include <vector>

namespace cloudfs {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using storage::cloudprovider::openSequentialReader;

namespace {

// Between two chunks an interrupt is noticed.
constexpr std::size_t kChunkSize = 256 * 1024;

std::unique_ptr<ByteStream> openForReading(const IProvider& provider, const StorePath& path, const ByteRange& range) {
    const bool isWhole = range.offset == 0 && !range.size;
    try {
        return isWhole ? openSequentialReader(provider, path.iri()) : provider.openReadOnlyStream(path.iri());
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
    failIfMeansFolder(path);
    const auto stream = openForReading(provider, path, range);
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

}  // namespace cloudfs
