// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/PartInfo.hpp>

#include <ostream>

namespace storage::cloudprovider {

std::ostream& operator<<(std::ostream& stream, const PartInfo& part) {
    return stream << "PartInfo{Index=" << part.Index << ",Offset=" << part.Offset << ",Size=" << part.Size << ",Tag=\""
                  << part.Tag << "\"}";
}

}  // namespace storage::cloudprovider
