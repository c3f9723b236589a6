// SPDX-License-Identifier: Apache-2.0
#include "mount/errnoOf.hpp"

#include <foundation/storage/provider/Exception.hpp>

#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <string_view>

namespace cloudfs::mount {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ErrorCoded;

namespace {

// The host has no code for it: what is left of the cause is its text, of the system or of SQLite.
bool isDiskFull(std::string_view text) {
    return text.find("No space left on device") != std::string_view::npos ||
           text.find("Disk quota exceeded") != std::string_view::npos ||
           text.find("disk is full") != std::string_view::npos;
}

int toErrno(ErrorCode code, const char* text) {
    switch (code) {
        case ErrorCode::FolderNotEmpty:
            return ENOTEMPTY;
        case ErrorCode::InvalidLocation:
            return EINVAL;
        case ErrorCode::PermissionDenied:
            return EACCES;
        case ErrorCode::AlreadyExists:
            return EEXIST;
        case ErrorCode::NotFound:
            return ENOENT;
        case ErrorCode::InUse:
            return EBUSY;
        case ErrorCode::Unsupported:
            return ENOTSUP;
        case ErrorCode::Unknown:
            break;
    }
    return isDiskFull(text) ? ENOSPC : EIO;
}

std::optional<ErrorCode> codeOf(const std::exception& failure) {
    const auto* const coded = dynamic_cast<const ErrorCoded*>(&failure);
    return coded != nullptr ? std::optional(coded->getErrorCode()) : std::nullopt;
}

}  // namespace

const char* ErrnoError::what() const noexcept {
    return ::strerrordesc_np(m_value);
}

int errnoOf(const std::exception& failure) noexcept {
    if (const auto* const known = dynamic_cast<const ErrnoError*>(&failure)) {
        return known->value();
    }
    if (dynamic_cast<const std::bad_alloc*>(&failure) != nullptr) {
        return ENOMEM;
    }
    return toErrno(codeOf(failure).value_or(ErrorCode::Unknown), failure.what());
}

int errnoOfWrite(const std::exception& failure) noexcept {
    return codeOf(failure) == ErrorCode::Unsupported ? EFBIG : errnoOf(failure);
}

int errnoOfRead(const std::exception& failure) noexcept {
    const auto code = codeOf(failure);
    return code == ErrorCode::NotFound || code == ErrorCode::InUse ? ESTALE : errnoOf(failure);
}

}  // namespace cloudfs::mount
