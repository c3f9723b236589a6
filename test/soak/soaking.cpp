// SPDX-License-Identifier: Apache-2.0
#include "soaking.hpp"

#include <cstring>

namespace soak {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ErrorCoded;

std::uint64_t Dice::pick(std::uint64_t least, std::uint64_t most) {
    return std::uniform_int_distribution<std::uint64_t>(least, most)(m_random);
}

std::string Dice::bytes(std::uint64_t count) {
    std::string bytes(count + sizeof(std::uint64_t), '\0');
    for (std::uint64_t at = 0; at < count; at += sizeof(std::uint64_t)) {
        const std::uint64_t word = m_random();
        std::memcpy(bytes.data() + at, &word, sizeof(word));
    }
    bytes.resize(count);
    return bytes;
}

OpenOptions toUpdate() {
    return {OpenOptions::Access::ReadWrite, OpenOptions::ExistingContent::Preserve, OpenOptions::Presence::Optional,
            OpenOptions::WriteMode::Positioned};
}

OpenOptions toReplace() {
    return {OpenOptions::Access::WriteOnly, OpenOptions::ExistingContent::Discard, OpenOptions::Presence::Optional,
            OpenOptions::WriteMode::Positioned};
}

void writeAt(ByteStream& stream, std::uint64_t position, const std::string& bytes) {
    if (bytes.empty()) {
        return;
    }
    const auto taken = insist([&] {
        stream.seek(static_cast<std::int64_t>(position), std::ios_base::beg);
        return stream.write(bytes.data(), static_cast<std::int64_t>(bytes.size()));
    });
    if (taken != static_cast<std::int64_t>(bytes.size())) {
        throw Finding("a write took " + std::to_string(taken) + " of " + std::to_string(bytes.size()) + " bytes");
    }
}

std::string readAt(ByteStream& stream, std::uint64_t position, std::uint64_t count) {
    std::string bytes(count, '\0');
    const auto size = insist([&] {
        stream.seek(static_cast<std::int64_t>(position), std::ios_base::beg);
        return stream.read(bytes.data(), static_cast<std::int64_t>(count));
    });
    bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return bytes;
}

bool succeeds(const std::function<void()>& action) {
    try {
        action();
        return true;
    } catch (const std::exception& failure) {
        if (!isInjected(failure)) {
            throw;
        }
        return false;
    }
}

bool succeedsUnless(ErrorCode code, const std::function<void()>& action) {
    try {
        return succeeds(action);
    } catch (const ErrorCoded& failure) {
        if (failure.getErrorCode() != code) {
            throw;
        }
        return false;
    }
}

}  // namespace soak
