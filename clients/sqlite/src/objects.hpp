// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <storage/cloudprovider/PartInfo.hpp>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The objects by their keys. All of it happens in the caller's transaction.
namespace storage::cloudprovider::sqlite {

/// What the store knows of an object.
struct StoredObject {
    std::int64_t content = 0;
    std::uint64_t size = 0;
    boost::posix_time::ptime modified;
};

/// Microseconds since 1970-01-01 UTC, now.
std::int64_t currentTime();

/// The same as a ptime; not_a_date_time beyond what a ptime holds.
boost::posix_time::ptime toTime(std::int64_t microseconds);

std::optional<StoredObject> findObject(Connection& connection, const std::string& key);

/// The same, but a missing object is a ResourceNotFoundException.
StoredObject getExistingObject(Connection& connection, const std::string& key);

/// Make a content the object of that key, as of now; what was there before is dropped.
void replaceObject(Connection& connection, const std::string& key, std::int64_t content, std::uint64_t size);

/// Remove an object and its content. Throws ResourceNotFoundException when it is not there.
void removeObject(Connection& connection, const std::string& key);

/// The layout of an object; empty when it has a single part or is not there.
std::vector<PartInfo> getParts(Connection& connection, const std::string& key);

/// Whether an object has a part of that offset, size and tag, or is itself that part. The part must lie within the
/// object.
bool hasPart(Connection& connection, const StoredObject& object, const PartInfo& part);

}  // namespace storage::cloudprovider::sqlite
