// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/host.hpp"

#include <foundation/storage/provider/ByteStream.hpp>

#include <ios>
#include <memory>

namespace storage::cloudprovider {

/// The bytes of one open file on their way to another. One thread.
///
/// The destination is stored by closeBoth only: a transfer that goes without it gives the destination up.
class FileTransfer {
public:
    using ByteStream = host::ByteStream;

    /// Gives a stream up that was not closed.
    struct Abandon {
        void operator()(ByteStream* stream) const noexcept;
    };
    using Destination = std::unique_ptr<ByteStream, Abandon>;

    FileTransfer(std::unique_ptr<ByteStream> source, Destination destination);

    /// Copy every byte.
    ///
    /// Errors   ByteStreamReadFailure; ByteStreamWriteFailure, also when the destination takes less than it was given;
    ///          OperationInterrupted, after the destination was given up.
    void copyAllBytes();

    /// Close the source. Closing again does nothing.
    void closeSource();

    /// Close the source, then, whatever became of that, the destination, which stores it. The destination's failure
    /// wins. Closing again does nothing.
    void closeBoth();

    /// Close the source, and the destination without storing it.
    void giveUp() noexcept;

private:
    void writeAll(const char* data, std::streamsize count);

    const std::shared_ptr<ByteStream> m_destinationStream;
    host::GenericByteStreamDevice m_source;
    host::GenericByteStreamDevice m_destination;
};

}  // namespace storage::cloudprovider
