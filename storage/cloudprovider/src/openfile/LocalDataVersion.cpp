// SPDX-License-Identifier: Apache-2.0
#include "openfile/LocalDataVersion.hpp"

#include <ostream>

namespace storage::cloudprovider {

std::ostream& operator<<(std::ostream& stream, LocalDataVersion version) {
    switch (version) {
        case LocalDataVersion::CLOUD:
            return stream << "CLOUD";
        case LocalDataVersion::NEW:
            return stream << "NEW";
        case LocalDataVersion::SCHEDULED_UPLOAD:
            return stream << "SCHEDULED_UPLOAD";
        case LocalDataVersion::INVALID:
            return stream << "INVALID";
    }
    return stream;
}

}  // namespace storage::cloudprovider
