// SPDX-License-Identifier: Apache-2.0
#include "store/StoreFileWriter.hpp"

#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/openSequentialWriter.hpp>

#include <utility>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;

namespace {

// Destroying a stream stores what was written, even half of it; this closes it without that.
void abandon(ByteStream& stream) noexcept {
    try {
        storage::cloudprovider::abandonStream(stream);
    } catch (...) {  // NOLINT(bugprone-empty-catch): the failure that led here is the one to report
    }
}

}  // namespace

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

}  // namespace cloudfs
