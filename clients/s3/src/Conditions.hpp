// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "signing.hpp"

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace storage::cloudprovider::s3 {

/// How a store wants to be told what may be replaced, as far as it was found out. Threads: any.
class Conditions {
public:
    enum class Write : std::uint8_t { Put, Complete, Copy };

    /// Whether the store has not said yet that it knows no condition there.
    bool areKnownTo(Write write) const noexcept { return !m_isRefused[toIndex(write)]; }
    void refuse(Write write) noexcept { m_isRefused[toIndex(write)] = true; }

    /// The headers that say it.
    Fields toHeaders(const ExpectedObject& expected) const;

    /// Whether ETags stand in quotes, as RFC 9110 wants it, and some gateways do not.
    bool areQuoted() const noexcept { return !m_isUnquoted; }
    void setQuoted(bool areQuoted) noexcept { m_isUnquoted = !areQuoted; }

private:
    static std::size_t toIndex(Write write) noexcept { return static_cast<std::size_t>(write); }

    std::array<std::atomic<bool>, 3> m_isRefused{};
    std::atomic<bool> m_isUnquoted{false};
};

}  // namespace storage::cloudprovider::s3
