// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OpenPartBuffer.hpp"
#include "PartTransfer.hpp"

#include <memory>
#include <optional>
#include <string>

namespace storage::cloudprovider {

/// Sends a changed part. It counts as one more opener, so the bytes stay mapped during the client's call even if the
/// streams that have the part open close it meanwhile.
class PartUpload final : public PartTransfer {
public:
    explicit PartUpload(std::shared_ptr<OpenPartBuffer> part);

    std::optional<PartInfo> begin() override;
    const char* data() const override;
    bool succeed(const PartInfo& record, std::string tag) noexcept override;
    bool fail() noexcept override;

private:
    bool giveBack() noexcept;

    const std::shared_ptr<OpenPartBuffer> m_part;
    std::optional<OpenPartHold> m_hold;
};

/// Takes an unchanged part from the stored object.
class PartReuse final : public PartTransfer {
public:
    explicit PartReuse(std::shared_ptr<OpenPartBuffer> part);

    std::optional<PartInfo> begin() override;
    const char* data() const override;
    bool succeed(const PartInfo& record, std::string tag) noexcept override;
    bool fail() noexcept override;

private:
    const std::shared_ptr<OpenPartBuffer> m_part;
};

}  // namespace storage::cloudprovider
