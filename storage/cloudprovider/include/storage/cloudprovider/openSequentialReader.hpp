// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/ByteStream.hpp>
#include <foundation/storage/provider/IProvider.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/export.hpp>

#include <memory>

namespace storage::cloudprovider {

/// Open a file to read it once from its beginning to its end, as fast as the store allows: ranges larger than a part
/// are fetched ahead straight into memory, without the temporary disk and the cache.
///
/// What is read is the object that was stored when the file was opened. Where the store tells versions, a read fails
/// with InUse once it has another one; else its bytes may be of both. The stream does not keep the file from being
/// removed, moved or replaced. A file that is open is read as openReadOnlyStream does, with what was written to it.
///
/// The stream can be neither written nor given another position. A read that fails before its first byte can be tried
/// again; after one that fails later, all fail.
///
/// Costs    memory: ranges of twice the provider's part size, of 16 MiB at most; one for each stream, and besides as
///          many as the provider has transferThreads, which its streams share.
/// Errors   Exception: Unsupported for a provider that buildCloudProvider did not make; NotFound.
/// Threads  one at a time.
CLOUDPROVIDER_EXPORT std::unique_ptr<foundation::storage::provider::ByteStream> openSequentialReader(
    const foundation::storage::provider::IProvider& provider, const foundation::storage::provider::StorageIRI& iri);

}  // namespace storage::cloudprovider
