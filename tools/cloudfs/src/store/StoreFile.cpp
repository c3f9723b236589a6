// SPDX-License-Identifier: Apache-2.0
#include "store/StoreFile.hpp"

#include "local/LocalSource.hpp"
#include "terminal/failures.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/openSequentialWriter.hpp>

#include <utility>
#include <vector>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;

namespace {

// Between two chunks an interrupt is noticed.
constexpr std::size_t kChunkSize = 256 * 1024;

const char* const kIsFolder = "is a folder";
const char* const kSayWhichFile = " is a folder: say which file in it is meant";

// Destroying a stream stores what was written, even half of it; this closes it without that.
void abandon(ByteStream& stream) noexcept {
    try {
        storage::cloudprovider::abandonStream(stream);
    } catch (...) {  // NOLINT(bugprone-empty-catch): the failure that led here is the one to report
    }
}

std::unique_ptr<ByteStream> openForReading(const IProvider& provider, const StorePath& path) {
    try {
        return provider.openReadOnlyStream(path.iri());
    } catch (const Exception& failure) {
        if (failure.getErrorCode() == ErrorCode::NotFound) {
            failIfFolder(provider, path);
        }
        throw;
    }
}

}  // namespace

void failIfMeansFolder(const StorePath& path) {
    if (path.meansFolder()) {
        throw Failure(ErrorCode::InvalidLocation, path.text(), kIsFolder);
    }
}

void failIfFolder(const IProvider& provider, const StorePath& path) {
    failIfMeansFolder(path);
    if (provider.folderExists(path.iri()) && !provider.fileExists(path.iri())) {
        throw Failure(ErrorCode::InvalidLocation, path.text(), kIsFolder);
    }
}

std::optional<std::uint64_t> sizeOf(const IProvider& provider, const StorePath& path) {
    failIfFolder(provider, path);
    const auto size = provider.getFileAttributes(path.iri()).getSize();
    return size ? std::optional<std::uint64_t>(*size) : std::nullopt;
}

void failUnlessNameable(const StorePath& path, const std::string& name) {
    if (path.meansFolder() && name.empty()) {
        throw UsageError(path.text() + kSayWhichFile);
    }
}

StorePath placeFor(const IProvider& provider, const StorePath& path, const std::string& name) {
    if (!path.meansFolder() && !provider.folderExists(path.iri())) {
        return path;
    }
    if (name.empty()) {
        throw UsageError(path.text() + kSayWhichFile);
    }
    auto place = path.child(name);
    failIfFolder(provider, place);
    return place;
}

StoreFileWriter::StoreFileWriter(const IProvider& provider, StorePath path)
    : m_path(std::move(path)), m_stream(storage::cloudprovider::openSequentialWriter(provider, m_path.iri())) {}

StoreFileWriter::StoreFileWriter(const IProvider& provider, StorePath path, const ByteStreamOpenOptions& options)
    : m_path(std::move(path)), m_stream(provider.openStream(m_path.iri(), options)) {}

StoreFileWriter::~StoreFileWriter() {
    if (m_stream) {
        abandon(*m_stream);
    }
}

void StoreFileWriter::seek(std::int64_t offset) {
    namingPath(m_path.text(), [&] { m_stream->seek(offset, std::ios_base::beg); });
}

std::uint64_t StoreFileWriter::writeAll(LocalSource& source, ProgressBar& progress) {
    std::vector<char> buffer(kChunkSize);
    std::uint64_t total = 0;
    while (const auto count = source.read(buffer.data(), buffer.size())) {
        write({buffer.data(), count});
        progress.advance(count);
        total += count;
    }
    return total;
}

void StoreFileWriter::write(std::string_view data) {
    while (!data.empty()) {
        const auto written = namingPath(
            m_path.text(), [&] { return m_stream->write(data.data(), static_cast<std::int64_t>(data.size())); });
        if (written <= 0) {
            throw Failure(ErrorCode::Unknown, m_path.text(), "the store took no bytes");
        }
        data.remove_prefix(static_cast<std::size_t>(written));
    }
}

void StoreFileWriter::store(ProgressBar& progress) {
    foundation::utInterruptState::ThrowIfInterruptPending();
    progress.announceStoring();
    // A stream that failed to close is closed all the same: there is nothing left to give up.
    const auto stream = std::exchange(m_stream, nullptr);
    namingPath(m_path.text(), [&] { stream->close(); });
}

void readStoreFile(const IProvider& provider, const StorePath& path, const std::function<void(std::string_view)>& sink,
                   ProgressBar& progress) {
    failIfMeansFolder(path);
    const auto stream = openForReading(provider, path);
    std::vector<char> buffer(kChunkSize);
    while (true) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        const auto count = namingPath(
            path.text(), [&] { return stream->read(buffer.data(), static_cast<std::int64_t>(buffer.size())); });
        if (count < 0) {
            break;
        }
        sink({buffer.data(), static_cast<std::size_t>(count)});
        progress.advance(static_cast<std::uint64_t>(count));
    }
    namingPath(path.text(), [&] { stream->close(); });
}

}  // namespace cloudfs
