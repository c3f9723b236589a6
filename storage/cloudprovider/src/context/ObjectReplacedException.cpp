// SPDX-License-Identifier: Apache-2.0
#include "context/ObjectReplacedException.hpp"

#include "support/host.hpp"
#include "support/translateException.hpp"

#include <optional>

namespace storage::cloudprovider {

namespace {

// Whether the store is known to have something else; when it does not answer, that is not known.
bool isReplaced(const OpenFileContext& context, const std::string& version) {
    try {
        const auto stored = context.client->describeObject(context.key);
        return !stored || stored->Version != version;
    } catch (...) {
        traceCaughtException();
        return false;
    }
}

}  // namespace

ObjectReplacedException::ObjectReplacedException(const std::string& key)
    : ResourceInUseException(
          host::ExceptionContext('"' + key + "\" was replaced or removed in the store while it was open")) {}

void throwIfReplaced(const OpenFileContext& context, const std::string& version) {
    if (!version.empty() && isReplaced(context, version)) {
        throw ObjectReplacedException(context.key);
    }
}

}  // namespace storage::cloudprovider
