// SPDX-License-Identifier: Apache-2.0
#include "errors.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <sqlite3.h>

#include <limits>

namespace storage::cloudprovider::sqlite {

using foundation::storage::provider::ExceptionContext;

namespace {

constexpr const char* kDamaged = "the store is damaged: ";

}  // namespace

void throwCloudException(const std::string& action, const SQLite::Exception& cause) {
    // Only the low byte: the rest of an extended code tells details (sqlite.org/rescode.html).
    const int code = cause.getErrorCode() & 0xFF;
    const ExceptionContext context(action + ": " + (code == SQLITE_CORRUPT ? kDamaged : "") + cause.what());
    switch (code) {
        case SQLITE_READONLY:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            throw PermissionDeniedException(context);
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_PROTOCOL:
            throw ResourceInUseException(context);
        default:
            throw UnknownErrorException(context);
    }
}

void throwCloudException(const std::string& action, const StoreFailure& cause) {
    throw UnknownErrorException(ExceptionContext(action + ": " + cause.what()));
}

void throwCloudException(const std::string& action, const ObjectChanged& cause) {
    throw ResourceInUseException(ExceptionContext(action + ": " + cause.what()));
}

void throwCloudException(const std::string& action, const OutdatedStore& cause) {
    throw UnsupportedOperationException(ExceptionContext(action + ": " + cause.what()));
}

bool isDiskFull(const SQLite::Exception& error) {
    return (error.getErrorCode() & 0xFF) == SQLITE_FULL;
}

void throwDamaged(const std::string& what) {
    throw StoreDamaged(kDamaged + what);
}

void requireSum(std::int64_t stored, std::int64_t computed, const std::string& row) {
    if (stored != computed) {
        throwDamaged(row + " is not as it was written");
    }
}

std::int64_t toInteger(std::uint64_t value) {
    if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        throw StoreFailure(std::to_string(value) + " is more than the store can count");
    }
    return static_cast<std::int64_t>(value);
}

std::uint64_t toSize(std::int64_t value) {
    if (value < 0) {
        throwDamaged("a size or position is " + std::to_string(value));
    }
    return static_cast<std::uint64_t>(value);
}

}  // namespace storage::cloudprovider::sqlite
