// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace storage::cloudprovider {

class MultipartUploadManager;

/// What an upload sees of a part that it is to send, or of neighbouring parts that it is to take from the stored
/// object. One thread at a time.
///
/// begin comes first, then, unless it answered false, transfer, and either succeed or fail; after a failure it may
/// begin again.
class PartTransfer {
public:
    virtual ~PartTransfer() = default;

    /// Take the record of what is to be transferred, as it is now, in one step with the part's change of state. False:
    /// there is nothing to transfer any more. When it throws nothing has changed.
    virtual bool begin() = 0;

    /// Have the upload make the transfer, and keep its answer for succeed.
    virtual void transfer(MultipartUploadManager& upload) = 0;

    /// Note that the upload has it. Tells whether it is to be transferred once more, since it was changed meanwhile and
    /// nobody is left to hand it over.
    virtual bool succeed() noexcept = 0;

    /// Take back what begin did. Tells whether the part is to be sent again in any case, since it was changed
    /// meanwhile.
    virtual bool fail() noexcept = 0;

protected:
    PartTransfer() = default;
    PartTransfer(const PartTransfer&) = default;
    PartTransfer& operator=(const PartTransfer&) = default;
};

}  // namespace storage::cloudprovider
