// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/ByteStream.hpp>
#include <storage/cloudprovider/export.hpp>

namespace storage::cloudprovider {

/// Store now what was written to the file of this stream so far, by all its streams, and leave them open: an fsync that
/// ends in the store.
///
/// When it returns, everything that was written before the call is stored, and as durable as the store promises. A
/// write that another thread has in progress may be stored in part; the rest waits for the next call, or for the last
/// stream to close. Calling it again without a change stores nothing again. This is how a writer learns that its
/// bytes are stored: close does not tell while other streams of the file are open, since the last one to close stores
/// the file, even if it is a reader's. abandonStream gives up what was written after this.
///
/// Values   a stream opened for reading only stores nothing.
/// Errors   ByteStreamWriteFailure: Unsupported for a stream of another provider; Unknown for a closed one, as from
///          write; InUse when somebody replaced or removed the object in the store while the file was open, whose
///          change then stands; and whatever the client throws. The object is the old one then, or the new one if only
///          the answer was lost; calling it again is allowed.
/// Threads  like any use of the stream. Other streams of the file may be used at the same time: they wait for it before
///          they write, and when they go on to another part.
CLOUDPROVIDER_EXPORT void storeStream(foundation::storage::provider::ByteStream& stream);

}  // namespace storage::cloudprovider
