// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <SQLiteCpp/Exception.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace storage::cloudprovider::sqlite {

/// A failure that SQLite knows nothing of, on its way to the client, who names the step and the key.
class StoreFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An object is not the one that was expected. The text tells what became of it.
class ObjectChanged : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throw the CloudException that fits what SQLite reported.
///
/// Values   action: what failed, on what, such as 'cannot get "a/b" in the store store.db'.
[[noreturn]] void throwCloudException(const std::string& action, const SQLite::Exception& cause);

/// Throw an UnknownErrorException.
[[noreturn]] void throwCloudException(const std::string& action, const StoreFailure& cause);

/// Throw a ResourceInUseException.
[[noreturn]] void throwCloudException(const std::string& action, const ObjectChanged& cause);

/// Throw a StoreFailure about rows that contradict each other.
[[noreturn]] void throwDamaged(const std::string& what);

/// Convert a size or position to SQLite's numbers. Throws StoreFailure above 2^63-1.
std::int64_t toInteger(std::uint64_t value);

/// Convert a size or position that was stored. Throws StoreFailure, as damage, when it is negative.
std::uint64_t toSize(std::int64_t value);

}  // namespace storage::cloudprovider::sqlite
