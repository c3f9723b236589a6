// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <iosfwd>

namespace storage::cloudprovider {

/// Where a part's current bytes live.
enum class LocalDataVersion : std::uint32_t {
    CLOUD = 0,             ///< in the stored object; a local copy equals them
    NEW = 1,               ///< here: changed, and not handed to the upload
    SCHEDULED_UPLOAD = 2,  ///< here, and handed to the upload
    INVALID = 3            ///< nowhere
};

/// Write the name for a trace record; nothing for any other value.
std::ostream& operator<<(std::ostream& stream, LocalDataVersion version);

}  // namespace storage::cloudprovider
