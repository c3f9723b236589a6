// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/host.hpp"

#include <foundation/storage/provider/StorageIRI.hpp>

#include <string>

namespace storage::cloudprovider {

/// Throw the exception being handled as the host's Exception for iri. Call only inside a catch-all handler.
///
/// A host Exception passes unchanged; a CloudException gives its code; anything else gives Unknown. The text
/// of the cause is kept. A thrown std::exception_ptr stands for the exception it holds.
[[noreturn]] void translateException(const host::StorageIRI& iri);

/// The text of the exception being handled; empty when it has none.
std::string describeCurrentException();

/// Trace the exception being handled, if such records are wanted. Destructors may call it.
void traceCaughtException() noexcept;

/// Run an operation on iri: whatever it throws is traced, then translated.
template <typename Operation>
auto translatingErrors(const host::StorageIRI& iri, Operation operation) {
    try {
        return operation();
    } catch (...) {
        traceCaughtException();
        translateException(iri);
    }
}

}  // namespace storage::cloudprovider
