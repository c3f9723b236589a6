// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "FaultyClient.hpp"

#include <foundation/storage/provider/ByteStream.hpp>
#include <foundation/storage/provider/Exception.hpp>

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

// What the kinds of work have in common.
namespace soak {

/// Something is not as it should be; the text says what, in a sentence.
class Finding : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Numbers and bytes that a seed decides. One thread.
class Dice {
public:
    explicit Dice(std::uint64_t seed) : m_random(seed) {}

    /// From least to most, both included.
    std::uint64_t pick(std::uint64_t least, std::uint64_t most);
    bool oneIn(std::uint64_t count) { return pick(1, count) == 1; }
    std::string bytes(std::uint64_t count);

private:
    std::mt19937_64 m_random;
};

using Stream = std::unique_ptr<foundation::storage::provider::ByteStream>;
using OpenOptions = foundation::storage::provider::ByteStreamOpenOptions;

/// Options to change a file, or make it.
OpenOptions toUpdate();
/// Options to write a file anew.
OpenOptions toReplace();

/// Write all of it at a position, again where an injected fault is met.
void writeAt(foundation::storage::provider::ByteStream& stream, std::uint64_t position, const std::string& bytes);
/// At most count bytes from a position, fewer at the end; again where an injected fault is met.
std::string readAt(foundation::storage::provider::ByteStream& stream, std::uint64_t position, std::uint64_t count);

/// Whether action was done: false when it met an injected fault. What else it throws passes through.
bool succeeds(const std::function<void()>& action);
/// As succeeds, but for the failure of that code, which is no fault: false.
bool succeedsUnless(foundation::storage::provider::ErrorCode code, const std::function<void()>& action);

/// The result of action, which is done again where it meets injected faults.
template <typename Action>
auto insist(Action action) {
    constexpr int kMostTries = 1000;  // each fault is injected once
    for (int tries = 1;; ++tries) {
        try {
            return action();
        } catch (const std::exception& failure) {
            if (!isInjected(failure) || tries == kMostTries) {
                throw;
            }
        }
    }
}

}  // namespace soak
