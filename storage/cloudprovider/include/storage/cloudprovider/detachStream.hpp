// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/ByteStream.hpp>
#include <storage/cloudprovider/export.hpp>

namespace storage::cloudprovider {

/// Have the file of this stream leave its name, for instance before the object is removed: its streams go on, but
/// nothing of the file is stored any more, and it does not count as open.
///
/// All streams of the file keep reading and writing what they have, in temporary files. Closing them, and storeStream,
/// store nothing and succeed. What was sent to the store is given up. Whoever opens the name from now on gets
/// what the store has there.
///
/// What has not been fetched by now can be had only while the store is known to have the version that the file was
/// opened from, or stored last. Once that is removed or replaced, or at once if the store does not tell versions,
/// reading it, or writing into its part, fails with NotFound. What was fetched is no longer dropped when the cache is
/// full. Calling this again, by any stream of the file, does nothing.
///
/// Values   a stream opened for reading only will do.
/// Errors   ByteStreamWriteFailure: Unsupported for a stream of another provider, and one that writes sequentially;
///          Unknown for a closed one. What the client throws while an upload is dropped is traced.
/// Threads  like any use of the stream; other streams of the file may be used at the same time. Waits for a store that
///          is under way, which succeeds or fails as usual, and for parts that are being fetched or sent.
CLOUDPROVIDER_EXPORT void detachStream(foundation::storage::provider::ByteStream& stream);

}  // namespace storage::cloudprovider
