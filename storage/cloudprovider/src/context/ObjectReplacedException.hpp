// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/OpenFileContext.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <string>

namespace storage::cloudprovider {

/// The object that a file was opened from is no longer the stored one: what is in the file can be neither completed nor
/// stored.
class ObjectReplacedException : public ResourceInUseException {
public:
    explicit ObjectReplacedException(const std::string& key);
};

/// Throw ObjectReplacedException if the store says that it has another version than the given one, or none. For the
/// handler of a refusal: a store may be in use for other reasons, too, and then the refusal itself is what to report.
void throwIfReplaced(const OpenFileContext& context, const std::string& version);

/// Make a client's call on a version of the object; its refusal becomes ObjectReplacedException where that is the
/// cause.
template <typename Call>
auto onVersion(const OpenFileContext& context, const std::string& version, Call call) {
    try {
        return call();
    } catch (const ResourceInUseException&) {
        throwIfReplaced(context, version);
        throw;
    } catch (const ResourceNotFoundException&) {
        throwIfReplaced(context, version);
        throw;
    }
}

}  // namespace storage::cloudprovider
