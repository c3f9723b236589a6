// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "openfile/OpenPartBuffer.hpp"

#include <memory>

namespace storage::cloudprovider {

/// Keeps a part open, from construction to close or destruction. Move-only.
class OpenPartHold {
public:
    /// Opens the part; see OpenPartBuffer::open for what it throws.
    explicit OpenPartHold(std::shared_ptr<OpenPartBuffer> part);
    OpenPartHold(OpenPartHold&&) noexcept = default;
    OpenPartHold& operator=(OpenPartHold&&) = delete;
    ~OpenPartHold();

    /// Take over an open that was counted already.
    static OpenPartHold adopt(std::shared_ptr<OpenPartBuffer> part);

    const std::shared_ptr<OpenPartBuffer>& part() const noexcept { return m_part; }

    /// Close the part; tells whether nobody has it open any more. Call once.
    bool close();

private:
    struct Adopted {};
    OpenPartHold(std::shared_ptr<OpenPartBuffer> part, Adopted) noexcept;

    std::shared_ptr<OpenPartBuffer> m_part;
};

}  // namespace storage::cloudprovider
