// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/ByteStream.hpp>
#include <storage/cloudprovider/export.hpp>

#include <cstdint>

namespace storage::cloudprovider {

/// Give the file of this stream another size: cut it short, or add zeros at its end. Like a write, it reaches the
/// store when the last stream of the file closes, or with storeStream. To resize a file that is not open, open it to be
/// kept (Preserve), resize it and close it.
///
/// All streams of the file see the new size at once. Positions stay where they are, even past the end; a stream that
/// has met the end stays there until it seeks. Bytes that were cut off do not come back: when the file grows again,
/// there are zeros. The size that the file already has changes nothing, and does not make an absent file.
///
/// Costs    nothing is sent or fetched here. When the file is stored, the parts before the cut are copied inside the
///          store, and of the one that holds it only the beginning is sent, fetched first if it was not here. Zeros
///          are sent as whole parts; on the temporary disk there are no more of them than are being sent. If the part
///          that is cut is on that disk, cutting needs room for what is left of it until the former one has gone.
/// Values   size in bytes.
/// Errors   ByteStreamWriteFailure, with nothing changed: Unsupported for a stream of another provider, one that writes
///          sequentially, and a size that the store does not take; PermissionDenied for a stream opened for reading
///          only; Unknown for a closed one, and when there is no room on the temporary disk.
/// Threads  like any use of the stream. Other streams of the file may be used at the same time: a write in progress
///          happens before the cut or after it, piece by piece if it covers several parts. Waits for a store that is
///          under way, which stores the former size, and for parts that are being fetched or sent by other streams.
CLOUDPROVIDER_EXPORT void resizeStream(foundation::storage::provider::ByteStream& stream, std::uint64_t size);

}  // namespace storage::cloudprovider
