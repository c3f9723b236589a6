// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/Text.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <iostream>

using foundation::storage::provider::StorageIRI;
namespace utils = storage::cloudprovider::utils;

int main() {
    std::cout << utils::iriToKey(StorageIRI(u"store://bucket/notes/today.txt")) << '\n';
    try {
        utils::keyToPath("\xff");
    } catch (const foundation::InvalidTextError&) {
        return 0;
    }
    return 1;
}
