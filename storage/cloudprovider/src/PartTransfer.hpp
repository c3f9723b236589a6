// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/PartInfo.hpp>

#include <optional>
#include <string>

namespace storage::cloudprovider {

/// What an upload sees of a part that it is to send, or to take from the stored object. One thread at a time.
///
/// begin comes first, then, if it answered a record, either succeed or fail; after a failure it may begin again.
class PartTransfer {
public:
    virtual ~PartTransfer() = default;

    /// Take the record of what is to be transferred, as it is now, in one step with the part's change of state.
    /// Nothing: there is nothing to transfer any more. When it throws nothing has changed.
    virtual std::optional<PartInfo> begin() = 0;

    /// The first bytes of the part, from begin to succeed or fail; null when the stored object has them.
    virtual const char* data() const = 0;

    /// Keep the tag that the record's bytes got. Tells whether the part is to be transferred once more, since it was
    /// changed meanwhile and nobody is left to hand it over.
    virtual bool succeed(const PartInfo& record, std::string tag) noexcept = 0;

    /// Take back what begin did. Tells whether the part is to be sent again in any case, since it was changed
    /// meanwhile.
    virtual bool fail() noexcept = 0;

protected:
    PartTransfer() = default;
    PartTransfer(const PartTransfer&) = default;
    PartTransfer& operator=(const PartTransfer&) = default;
};

}  // namespace storage::cloudprovider
