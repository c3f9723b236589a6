// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/IProvider.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/export.hpp>

#include <cstdint>
#include <functional>
#include <string_view>

namespace storage::cloudprovider {

/// Takes bytes of a file that begin at offset. Several threads may call it at once.
using PieceSink = std::function<void(std::uint64_t offset, std::string_view bytes)>;

/// Read all of a file as fast as the store allows, for who can put bytes anywhere: this thread and the provider's, each
/// with a range of its own, hand over what arrives. Every byte comes once, in no order; nothing is kept in memory or on
/// the temporary disk.
///
/// What is read is the object that was stored when the call began. Where the store tells versions, the call fails with
/// InUse once it has another one; else the bytes may be of both. The file can be removed, moved or replaced meanwhile.
/// A file that is open is read as openReadOnlyStream does, with what was written to it.
///
/// Values   sink: called by this thread and others of the provider, by no more than transferThreads at once, and by
///          nobody once this has returned.
/// Errors   Exception: Unsupported for a provider that buildCloudProvider did not make; NotFound; what the store says.
///          What sink throws passes through. sink may have had any of the bytes by then.
/// Threads  any.
CLOUDPROVIDER_EXPORT void readInPieces(const foundation::storage::provider::IProvider& provider,
                                       const foundation::storage::provider::StorageIRI& iri, const PieceSink& sink);

}  // namespace storage::cloudprovider
