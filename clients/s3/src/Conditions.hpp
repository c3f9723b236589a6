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

    /// Whether it is of use to tell; not once the store refused that kind.
    bool areKnownTo(Write write, const ExpectedObject& expected) const noexcept {
        return !m_isRefused[toIndex(write, expected)];
    }
    void refuse(Write write, const ExpectedObject& expected) noexcept { m_isRefused[toIndex(write, expected)] = true; }

    /// Likewise for the version of what is copied.
    bool areKnownOfSources() const noexcept { return !m_isSourceRefused; }
    void refuseOfSources() noexcept { m_isSourceRefused = true; }

    /// The headers that say it.
    Fields toHeaders(const ExpectedObject& expected) const;

    /// Whether ETags stand in quotes, as RFC 9110 wants it, and some gateways do not.
    bool areQuoted() const noexcept { return !m_isUnquoted; }
    void setQuoted(bool areQuoted) noexcept { m_isUnquoted = !areQuoted; }

private:
    static std::size_t toIndex(Write write, const ExpectedObject& expected) noexcept {
        return 2 * static_cast<std::size_t>(write) + (expected.isAbsent() ? 1 : 0);
    }

    std::array<std::atomic<bool>, 6> m_isRefused{};
    std::atomic<bool> m_isSourceRefused{false};
    std::atomic<bool> m_isUnquoted{false};
};

}  // namespace storage::cloudprovider::s3
