// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace storage::cloudprovider {

/// A stream whose changes can be given up; see abandonStream.
class AbandonableStream {
public:
    /// Close the stream without writing the object back, if it is the object's only stream; tells whether it was.
    virtual bool abandon() = 0;

protected:
    AbandonableStream() = default;
    AbandonableStream(const AbandonableStream&) = default;
    AbandonableStream& operator=(const AbandonableStream&) = default;
    virtual ~AbandonableStream() = default;
};

}  // namespace storage::cloudprovider
