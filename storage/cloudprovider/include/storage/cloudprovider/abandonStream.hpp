// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/ByteStream.hpp>
#include <storage/cloudprovider/export.hpp>

namespace storage::cloudprovider {

/// Close a stream of this provider and give up what was written to the file since it was stored last.
///
/// Closing or destroying a stream stores what was written, even if the writer failed half-way. This is the way out: the
/// object stays as it was stored last, or absent. Whoever opens the file from then on gets that.
///
/// Result   true when the changes were given up, and for a stream that is closed already. False, with nothing done,
///          when other streams of the file are open, which share the changes; when one that closed since the last store
///          counts on them, because it wrote, or because its opening discarded or made the file; or when the stream is
///          not of this provider.
/// Errors   none beyond std::system_error; what the client throws while it drops an upload is traced.
/// Threads  like any use of the stream.
CLOUDPROVIDER_EXPORT bool abandonStream(foundation::storage::provider::ByteStream& stream);

}  // namespace storage::cloudprovider
