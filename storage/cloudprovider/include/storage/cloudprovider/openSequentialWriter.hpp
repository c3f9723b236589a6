// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/ByteStream.hpp>
#include <foundation/storage/provider/IProvider.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/export.hpp>

#include <memory>

namespace storage::cloudprovider {

/// Open a file to write it anew, once from its beginning to its end, without room for the whole of it: what was sent
/// leaves the temporary disk at once.
///
/// The stream can neither be read nor moved to another position. Closing it replaces whatever is stored, and so does
/// destroying it; until then the file is the old one, or absent. abandonStream gives it up; storeStream fails with
/// Unsupported. When closing fails, nothing is stored, or everything if only the answer was lost; the stream is closed
/// in any case.
///
/// While it is open the file belongs to it: whoever opens, removes or moves the file gets InUse.
///
/// A write may take fewer bytes than it was given when a part that was written earlier cannot be sent: the next call
/// fails with the reason, or goes on if it has passed. A file of a single part is stored in one go.
///
/// Costs    room on the temporary disk for transferThreads + 2 parts.
/// Errors   Exception: Unsupported for a provider that buildCloudProvider did not make; InUse when the file is open.
/// Threads  one at a time.
CLOUDPROVIDER_EXPORT std::unique_ptr<foundation::storage::provider::ByteStream> openSequentialWriter(
    const foundation::storage::provider::IProvider& provider, const foundation::storage::provider::StorageIRI& iri);

}  // namespace storage::cloudprovider
