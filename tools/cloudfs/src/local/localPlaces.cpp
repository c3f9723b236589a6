// SPDX-License-Identifier: Apache-2.0
#include "local/localPlaces.hpp"

#include "local/LocalTree.hpp"
#include "terminal/failures.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <string_view>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;

bool isThere(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

std::string localPlaceFor(const std::string& local, const std::string& name) {
    if (name.empty() || !isThere(local) || !isLocalFolder(local)) {
        return local;
    }
    return local.back() == '/' ? local + name : local + "/" + name;
}

const char* whyNotLocal(const std::string& name) {
    std::string_view rest(name);
    while (true) {
        const auto slash = rest.find('/');
        const auto component = rest.substr(0, slash);
        if (component.empty() || component == "." || component == ".." ||
            component.find('\0') != std::string_view::npos) {
            return "cannot be a local path";
        }
        if (slash == std::string_view::npos) {
            return nullptr;
        }
        rest.remove_prefix(slash + 1);
    }
}

void makeLocalFolder(const std::string& path) {
    constexpr mode_t kAllRights = 0777;
    if (::mkdir(path.c_str(), kAllRights) == 0) {
        return;
    }
    const int error = errno;
    struct stat status {};
    if (error != EEXIST || ::lstat(path.c_str(), &status) != 0) {
        throwLocalFailure(path, error);
    }
    if (S_ISLNK(status.st_mode)) {
        throw Failure(ErrorCode::InvalidLocation, path, "is a link, which is not written through");
    }
    if (!S_ISDIR(status.st_mode)) {
        throwLocalFailure(path, error);
    }
}

}  // namespace cloudfs
