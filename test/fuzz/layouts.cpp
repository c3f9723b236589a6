// SPDX-License-Identifier: Apache-2.0
// Layouts: whatever parts a client describes an object with, and how large parts become within a store's limits.
#include "client/checkedLayout.hpp"
#include "require.hpp"
#include "support/tuning.hpp"
#include "upload/PartSizes.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/PartInfo.hpp>

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace {

using fuzz::require;
using storage::cloudprovider::PartInfo;
using storage::cloudprovider::PartSizes;
using storage::cloudprovider::StoreLimits;
using Input = FuzzedDataProvider;

std::uint64_t anyNumber(Input& input) {
    return input.ConsumeBool() ? input.ConsumeIntegral<std::uint8_t>() : input.ConsumeIntegral<std::uint64_t>();
}

// As a store describes an object, some of them a bit wrong.
std::vector<PartInfo> anyParts(Input& input) {
    std::vector<PartInfo> parts;
    std::uint64_t offset = 0;
    for (auto left = input.ConsumeIntegralInRange<int>(0, 12); left > 0; --left) {
        const auto size = anyNumber(input);
        parts.push_back({anyNumber(input), input.ConsumeBool() ? offset : anyNumber(input), size, "tag"});
        offset += size;
    }
    if (input.ConsumeBool()) {
        std::reverse(parts.begin(), parts.end());
    }
    return parts;
}

void checkLayout(const std::vector<PartInfo>& described) {
    std::vector<PartInfo> parts;
    try {
        parts = checkedLayout(described, "key");
    } catch (const storage::cloudprovider::UnknownErrorException&) {
        return;
    }
    require(parts.size() == described.size(), "no part is lost");
    std::uint64_t end = 0;
    for (std::size_t index = 0; index < parts.size(); ++index) {
        require(parts[index].Index == index, "parts are numbered");
        require(parts[index].Offset == end, "parts follow each other");
        require(parts[index].Size <= std::numeric_limits<std::uint64_t>::max() - end, "the object's size is a number");
        end += parts[index].Size;
    }
}

void checkSizes(Input& input) {
    StoreLimits limits;
    limits.SmallestPart = anyNumber(input);
    limits.LargestPart = std::max<std::uint64_t>({anyNumber(input), limits.SmallestPart, 1});
    limits.LargestPut = std::max<std::uint64_t>({anyNumber(input), limits.SmallestPart, 1});
    limits.MostParts = std::max<std::uint64_t>(anyNumber(input), 1);
    const auto firstIndex = std::min(anyNumber(input), storage::cloudprovider::kMaxPartCount);
    const PartSizes sizes(std::max<std::uint64_t>(anyNumber(input), 1), limits, firstIndex);

    // The object may have any size here, so what a part may hold does not depend on its offset 0.
    const auto capacity = [&](std::uint64_t index) -> std::uint64_t {
        try {
            return sizes.capacityOf(index, 0, "key");
        } catch (const storage::cloudprovider::UnsupportedOperationException&) {
            return 0;  // the store takes no such part
        }
    };
    auto index = input.ConsumeBool() ? firstIndex : std::min(anyNumber(input), storage::cloudprovider::kMaxPartCount);
    const auto distance = anyNumber(input) / 2;  // positions are signed
    const auto found = sizes.indexBehind(index, distance);
    require(found >= index, "what lies behind has no smaller index");
    auto left = distance;
    constexpr int kMostSteps = 300;
    for (int step = 0; step < kMostSteps && capacity(index) > 0; ++step, ++index) {
        const auto size = capacity(index);
        require(size <= limits.LargestPart && size <= limits.LargestPut, "a part is not larger than the store takes");
        require(index < limits.MostParts, "there are no more parts than the store takes");
        require(capacity(index + 1) == 0 || capacity(index + 1) >= size, "parts do not become smaller");
        if (left < size) {
            require(found == index, "a byte is found in the part that holds it");
            return;
        }
        left -= size;
    }
    if (capacity(index) > 0) {
        require(found >= index, "a byte is not found before the part that holds it");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    checkLayout(anyParts(input));
    checkSizes(input);
    return 0;
}
