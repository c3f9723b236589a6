// SPDX-License-Identifier: Apache-2.0
#include "terminal/failures.hpp"

#include "terminal/escapeText.hpp"

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <system_error>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;

namespace {

std::string compose(ErrorCode code, const std::string& path, const std::string& cause) {
    auto text = labelOf(code);
    text.append(": ").append(path);
    if (!cause.empty()) {
        text.append(": ").append(cause);
    }
    return text;
}

std::optional<std::string> missingFolderAbove(const std::string& path) {
    for (auto slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        auto folder = path.substr(0, slash);
        if (::access(folder.c_str(), F_OK) != 0 && errno == ENOENT) {
            return folder;
        }
    }
    return std::nullopt;
}

}  // namespace

std::string labelOf(ErrorCode code) {
    return code == ErrorCode::Unknown ? "Failed" : std::string(toString(code));
}

PartFailure::PartFailure(std::size_t failures) : std::runtime_error(std::to_string(failures) + " failures") {}

Failure::Failure(ErrorCode code, const std::string& path, const std::string& cause)
    : std::runtime_error(compose(code, path, cause)) {}

StreamFailure::StreamFailure(ErrorCode code, const std::string& path, const std::string& cause)
    : Failure(code, path, cause), m_code(code) {}

std::string causeOf(ErrorCode code, const std::string& ownWords) {
    switch (code) {
        case ErrorCode::NotFound:
            return "there is no such file or folder";
        case ErrorCode::AlreadyExists:
            return "exists already";
        case ErrorCode::FolderNotEmpty:
            return "the folder is not empty";
        default:
            return ownWords;
    }
}

ErrorCode toErrorCode(int error) {
    switch (error) {
        case ENOENT:
            return ErrorCode::NotFound;
        case EACCES:
        case EPERM:
        case EROFS:
            return ErrorCode::PermissionDenied;
        case EEXIST:
            return ErrorCode::AlreadyExists;
        case EISDIR:
        case ENOTDIR:
        case ELOOP:
        case ENAMETOOLONG:
            return ErrorCode::InvalidLocation;
        case ENOTEMPTY:
            return ErrorCode::FolderNotEmpty;
        case EBUSY:
        case ETXTBSY:
            return ErrorCode::InUse;
        default:
            return ErrorCode::Unknown;
    }
}

void failUnlessUtf8(const std::string& path) {
    if (!isUtf8(path)) {
        throw Failure(ErrorCode::InvalidLocation, path, "the path is not valid UTF-8");
    }
}

void throwLocalFailure(const std::string& path, int error) {
    if (const auto folder = error == ENOENT ? missingFolderAbove(path) : std::nullopt) {
        throw Failure(ErrorCode::NotFound, *folder, "there is no such folder, for " + path);
    }
    throw Failure(toErrorCode(error), path, std::generic_category().message(error));
}

}  // namespace cloudfs
