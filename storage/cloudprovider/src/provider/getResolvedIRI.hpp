// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/host.hpp"

#include <foundation/storage/provider/StorageIRI.hpp>

namespace storage::cloudprovider {

/// Answer the one identifier that stands for all spellings of a file or folder.
///
/// Its key (utils::iriToKey) is that of iri but for a trailing "/", resolving it again changes nothing, and a
/// path that is clean already stays as it is. Scheme and authority stay.
/// Errors   InvalidLocationException when the path is not valid UTF-16.
host::StorageIRI getResolvedIRI(const host::StorageIRI& iri);

/// The same for operations whose failures are not translated as a whole: throws the host's Exception.
host::StorageIRI resolvedForHost(const host::StorageIRI& iri);

/// ResourceNotFoundException for the root, which is a folder: no file of that name can be asked for or made.
void failIfRoot(const host::StorageIRI& resolved);

}  // namespace storage::cloudprovider
