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

/// Rows or bytes that are not as they were written, or contradict each other. The text says so.
class StoreDamaged : public StoreFailure {
public:
    using StoreFailure::StoreFailure;
};

/// The store has an older format. The text tells what to do.
class OutdatedStore : public std::runtime_error {
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

/// Throw an UnsupportedOperationException.
[[noreturn]] void throwCloudException(const std::string& action, const OutdatedStore& cause);

/// Whether SQLite found no room on the disk.
bool isDiskFull(const SQLite::Exception& error);

/// Run an action; what it throws becomes the CloudException that fits, and says what describe() answers.
template <class Describe, class Action>
auto translateErrors(const Describe& describe, const Action& action) -> decltype(action()) {
    try {
        return action();
    } catch (const SQLite::Exception& error) {
        throwCloudException(describe(), error);
    } catch (const StoreFailure& failure) {
        throwCloudException(describe(), failure);
    } catch (const ObjectChanged& change) {
        throwCloudException(describe(), change);
    } catch (const OutdatedStore& store) {
        throwCloudException(describe(), store);
    }
}

/// Throw a StoreDamaged, "the store is damaged: " and what.
[[noreturn]] void throwDamaged(const std::string& what);

/// Throw a StoreDamaged that names a row when its checksum is not the one that was stored with it.
void requireSum(std::int64_t stored, std::int64_t computed, const std::string& row);

/// Convert a size or position to SQLite's numbers. Throws StoreFailure above 2^63-1.
std::int64_t toInteger(std::uint64_t value);

/// Convert a size or position that was stored. Throws StoreDamaged when it is negative.
std::uint64_t toSize(std::int64_t value);

}  // namespace storage::cloudprovider::sqlite
