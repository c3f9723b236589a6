// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace storage::cloudprovider {

/// What a stream of this provider can do beyond the host's interface; see abandonStream and storeStream.
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

protected:
    ProviderStream() = default;
    ProviderStream(const ProviderStream&) = default;
    ProviderStream& operator=(const ProviderStream&) = default;
    virtual ~ProviderStream() = default;
};

}  // namespace storage::cloudprovider
