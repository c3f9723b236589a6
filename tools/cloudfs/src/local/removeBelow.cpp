// SPDX-License-Identifier: Apache-2.0
#include "local/removeBelow.hpp"

#include "local/FileDescriptor.hpp"
#include "terminal/failures.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;

namespace {

struct Place {
    FileDescriptor folder;
    std::string name;  // in the folder
};

// Nothing when the folder that it is in has gone.
std::optional<Place> find(const std::string& root, const std::string& name) {
    auto folder = FileDescriptor::open(root, O_RDONLY | O_DIRECTORY);
    std::size_t begin = 0;
    for (auto slash = name.find('/'); slash != std::string::npos; slash = name.find('/', begin)) {
        const auto component = name.substr(begin, slash - begin);
        FileDescriptor next(::openat(folder.get(), component.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (next.get() < 0) {
            if (errno == ENOENT) {
                return std::nullopt;
            }
            throwLocalFailure(root + "/" + name.substr(0, slash), errno);
        }
        folder = std::move(next);
        begin = slash + 1;
    }
    return Place{std::move(folder), name.substr(begin)};
}

}  // namespace

void removeFileBelow(const std::string& folder, const std::string& name,
                     const std::function<bool(const struct stat& status)>& isMeant) {
    const auto place = find(folder, name);
    struct stat status {};
    if (!place || ::fstatat(place->folder.get(), place->name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return;
    }
    const auto path = folder + "/" + name;
    if (!S_ISREG(status.st_mode) || !isMeant(status)) {
        throw Failure(ErrorCode::InUse, path, "was changed meanwhile, and stays");
    }
    if (::unlinkat(place->folder.get(), place->name.c_str(), 0) != 0 && errno != ENOENT) {
        throwLocalFailure(path, errno);
    }
}

void removeFolderBelow(const std::string& folder, const std::string& name) {
    const auto place = find(folder, name);
    if (place && ::unlinkat(place->folder.get(), place->name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT &&
        errno != ENOTEMPTY && errno != EEXIST) {
        throwLocalFailure(folder + "/" + name, errno);
    }
}

}  // namespace cloudfs
