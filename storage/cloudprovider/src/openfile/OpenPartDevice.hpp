// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "openfile/OpenPartHold.hpp"

#include <cstdint>

namespace storage::cloudprovider {

/// What a stream holds of the part that its position lies in.
struct OpenPartDevice {
    std::uint64_t position;  ///< in bytes from the part's start
    OpenPartHold hold;

    OpenPartBuffer& part() const { return *hold.part(); }
};

}  // namespace storage::cloudprovider
