// SPDX-License-Identifier: Apache-2.0
#include "commands/sameBytes.hpp"

#include "local/LocalSource.hpp"
#include "store/readStoreFile.hpp"

#include <string_view>
#include <vector>

namespace cloudfs::commands {

namespace {

struct Difference {};

// Takes as many bytes from the source as there are in other, and ends the reading where they differ.
void compare(LocalSource& source, std::string_view other) {
    std::vector<char> buffer(other.size());
    while (!other.empty()) {
        const auto count = source.read(buffer.data(), other.size());
        if (count == 0 || other.substr(0, count) != std::string_view(buffer.data(), count)) {
            throw Difference();
        }
        other.remove_prefix(count);
    }
}

}  // namespace

bool haveSameBytes(const foundation::storage::provider::IProvider& provider, const StorePath& path,
                   const std::string& local, ProgressBar& progress) {
    LocalSource source(local);
    try {
        readStoreFile(
            provider, path, [&](std::string_view data) { compare(source, data); }, progress);
    } catch (const Difference&) {
        return false;
    }
    char more = 0;
    return source.read(&more, 1) == 0;
}

}  // namespace cloudfs::commands
