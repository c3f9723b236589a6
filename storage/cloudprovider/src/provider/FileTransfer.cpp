// SPDX-License-Identifier: Apache-2.0
#include "provider/FileTransfer.hpp"

#include "support/ScopeGuard.hpp"
#include "support/Trace.hpp"
#include "support/host.hpp"
#include "support/interrupt.hpp"
#include "support/translateException.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/abandonStream.hpp>

#include <array>
#include <exception>
#include <utility>

namespace storage::cloudprovider {

namespace {

constexpr std::size_t kChunkSize = 4096;

}  // namespace

void FileTransfer::Abandon::operator()(ByteStream* stream) const noexcept {
    try {
        abandonStream(*stream);
    } catch (...) {
        traceCaughtException();
    }
    delete stream;
}

FileTransfer::FileTransfer(std::unique_ptr<ByteStream> source, Destination destination)
    : m_destinationStream(std::move(destination)), m_source(std::move(source)), m_destination(m_destinationStream) {}

// Not boost::iostreams::copy: it closes both ends, and the destination must be stored only after the source is removed.
void FileTransfer::copyAllBytes() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::array<char, kChunkSize> chunk{};
    try {
        for (auto count = m_source.read(chunk.data(), chunk.size()); count > 0;
             count = m_source.read(chunk.data(), chunk.size())) {
            writeAll(chunk.data(), count);
            throwIfInterrupted();
        }
    } catch (const foundation::OperationInterrupted&) {
        giveUp();  // the user wants no file, least of all half of one
        throw;
    }
}

// Who takes fewer bytes than given fails with the reason when given the rest.
void FileTransfer::writeAll(const char* data, std::streamsize count) {
    while (count > 0) {
        const auto taken = m_destination.write(data, count);
        if (taken <= 0) {
            throw host::ByteStreamWriteFailure(
                host::ErrorCode::Unknown, host::ExceptionContext("the destination took fewer bytes than it was given"));
        }
        data += taken;
        count -= taken;
    }
}

void FileTransfer::closeSource() {
    m_source.close();
}

void FileTransfer::closeBoth() {
    std::exception_ptr failure;
    for (auto* const device : {&m_source, &m_destination}) {
        try {
            device->close();
        } catch (...) {
            traceCaughtException();
            failure = std::current_exception();
        }
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void FileTransfer::giveUp() noexcept {
    const ScopeGuard source([this] { m_source.close(); });
    const ScopeGuard destination([this] { abandonStream(*m_destinationStream); });
}

}  // namespace storage::cloudprovider
