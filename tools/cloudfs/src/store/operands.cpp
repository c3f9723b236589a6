// SPDX-License-Identifier: Apache-2.0
#include "store/operands.hpp"

#include "terminal/failures.hpp"

namespace cloudfs {

using foundation::storage::provider::ErrorCode;

namespace {

const char* const kIsFolder = "is a folder";
const char* const kSayWhichFile = " is a folder: say which file in it is meant";

}  // namespace

bool isFile(const IProvider& provider, const StorePath& path) {
    return !path.meansFolder() && provider.fileExists(path.iri());
}

bool isFolder(const IProvider& provider, const StorePath& path) {
    return !isFile(provider, path) && provider.folderExists(path.iri());
}

void failIfMeansFolder(const StorePath& path) {
    if (path.meansFolder()) {
        throw Failure(ErrorCode::InvalidLocation, path.text(), kIsFolder);
    }
}

void failIfFolder(const IProvider& provider, const StorePath& path) {
    failIfMeansFolder(path);
    if (provider.folderExists(path.iri()) && !provider.fileExists(path.iri())) {
        throw Failure(ErrorCode::InvalidLocation, path.text(), kIsFolder);
    }
}

std::optional<std::uint64_t> sizeOf(const IProvider& provider, const StorePath& path) {
    failIfFolder(provider, path);
    const auto size = provider.getFileAttributes(path.iri()).getSize();
    return size ? std::optional<std::uint64_t>(*size) : std::nullopt;
}

void failUnlessNameable(const StorePath& path, const std::string& name) {
    if (path.meansFolder() && name.empty()) {
        throw UsageError(path.text() + kSayWhichFile);
    }
}

void failUnlessFolder(const IProvider& provider, const StorePath& path) {
    if (!path.meansFolder() && !provider.folderExists(path.iri())) {
        throw Failure(ErrorCode::InvalidLocation, path.text(), "is no folder, which several files need");
    }
}

StorePath placeFor(const IProvider& provider, const StorePath& path, const std::string& name) {
    if (!path.meansFolder() && !provider.folderExists(path.iri())) {
        return path;
    }
    if (name.empty()) {
        throw UsageError(path.text() + kSayWhichFile);
    }
    auto place = path.child(name);
    failIfFolder(provider, place);
    return place;
}

StorePath folderPlaceFor(const IProvider& provider, const StorePath& path, const std::string& name) {
    const bool goesInto = !name.empty() && (path.meansFolder() || provider.folderExists(path.iri()));
    auto place = goesInto ? path.child(name) : path;
    if (!place.isRoot() && provider.fileExists(place.iri())) {
        throw Failure(ErrorCode::AlreadyExists, place.text(), "is a file");
    }
    return place;
}

}  // namespace cloudfs
