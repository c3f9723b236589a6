// SPDX-License-Identifier: Apache-2.0
#include "terminal/failures.hpp"

#include "store/StorePath.hpp"
#include "terminal/escapeText.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;

namespace {

struct Wording {
    std::string_view ofLibrary;
    std::string_view forPeople;
};

constexpr std::array kWordings{
    Wording{"Cloud Resource not found", "there is no such file or folder"},
    Wording{"Cloud Resource already exists", "exists already"},
    Wording{"Cloud Folder was not empty", "the folder is not empty"},
    Wording{"Unsupported Cloud operation", "the store cannot do this"},
    Wording{"Resource is in use", "is open elsewhere"},
};

std::string_view inPlainWords(std::string_view cause) {
    const auto* const found = std::find_if(kWordings.begin(), kWordings.end(),
                                           [&](const Wording& wording) { return wording.ofLibrary == cause; });
    return found == kWordings.end() ? cause : found->forPeople;
}

std::string compose(ErrorCode code, const std::string& path, const std::string& cause) {
    std::string text(toString(code));
    text.append(": ").append(path);
    if (!cause.empty()) {
        text.append(": ").append(inPlainWords(cause));
    }
    return text;
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

}  // namespace

Failure::Failure(ErrorCode code, const std::string& path, const std::string& cause)
    : std::runtime_error(compose(code, path, cause)) {}

StreamFailure::StreamFailure(ErrorCode code, const std::string& path, const std::string& cause)
    : Failure(code, path, cause), m_code(code) {}

void throwLocalFailure(const std::string& path, int error) {
    throw Failure(toErrorCode(error), path, std::generic_category().message(error));
}

std::string describe(const std::exception& failure) {
    if (dynamic_cast<const Failure*>(&failure) != nullptr || dynamic_cast<const UsageError*>(&failure) != nullptr) {
        return escapeText(failure.what());
    }
    if (const auto* ofProvider = dynamic_cast<const Exception*>(&failure)) {
        return escapeText(compose(ofProvider->getErrorCode(), StorePath::displayText(ofProvider->getIRI()),
                                  ofProvider->getContext().getMessage()));
    }
    return escapeText("Unknown: " + std::string(failure.what()));
}

}  // namespace cloudfs
