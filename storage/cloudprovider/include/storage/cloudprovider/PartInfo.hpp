// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/export.hpp>

#include <cstdint>
#include <iosfwd>
#include <string>

namespace storage::cloudprovider {

/// One part of an object: a run of consecutive bytes that is stored, fetched and sent by itself.
struct PartInfo {
    std::uint64_t Index = 0;   ///< position of the part in the object, from 0
    std::uint64_t Offset = 0;  ///< position of the part's first byte in the object
    std::uint64_t Size = 0;    ///< in bytes
    std::string Tag;           ///< the store's identifier of the part's content; empty when it has none yet
};

/// Write a part for a trace record, such as PartInfo{Index=2,Offset=10485760,Size=5242880,Tag="abc"}.
CLOUDPROVIDER_EXPORT std::ostream& operator<<(std::ostream& stream, const PartInfo& part);

}  // namespace storage::cloudprovider
