// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/host.hpp"

#include <foundation/storage/provider/ByteStream.hpp>

#include <cstdint>
#include <functional>

namespace storage::cloudprovider {

/// What a stream of this provider can do beyond the host's interface; see abandonStream, storeStream,
/// resizeStream and detachStream.
class ProviderStream {
public:
    /// Close the stream without writing the object back, if nobody else has a part in its changes; tells whether that
    /// was so.
    virtual bool abandon() = 0;

    /// Write the object back, and go on; a stream that cannot write does nothing. ByteStreamWriteFailure when the
    /// stream is closed.
    virtual void store() = 0;

    /// Let closing store the file whoever else has it open, or else give it up if nobody does: the close is an answer
    /// then.
    virtual void storeAtClose() noexcept = 0;

    /// Give the file another size. ByteStreamWriteFailure, too, when the stream is closed or cannot write.
    virtual void resize(std::uint64_t size) = 0;

    /// Have the file leave its name, and store nothing more. ByteStreamWriteFailure when the stream is closed.
    virtual void detach() = 0;

protected:
    ProviderStream() = default;
    ProviderStream(const ProviderStream&) = default;
    ProviderStream& operator=(const ProviderStream&) = default;
    virtual ~ProviderStream() = default;
};

/// Run an operation of a stream. Whatever it throws becomes ByteStreamWriteFailure, as does a stream of another
/// provider: Unsupported.
void withProviderStream(host::ByteStream& stream, const std::function<void(ProviderStream&)>& operation);

}  // namespace storage::cloudprovider
