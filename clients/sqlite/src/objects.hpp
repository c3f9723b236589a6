// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <optional>
#include <string>

/// The objects by their keys. All of it happens in the caller's transaction.
namespace storage::cloudprovider::sqlite {

/// What the store knows of an object.
struct StoredObject {
    std::int64_t content = 0;
    std::uint64_t size = 0;
    boost::posix_time::ptime modified;
    std::int64_t parts = 0;  ///< how many parts it was uploaded in; 0: put whole
};

/// Microseconds since 1970-01-01 UTC, now.
std::int64_t currentTime();

/// The same as a ptime; not_a_date_time beyond what a ptime holds.
boost::posix_time::ptime toTime(std::int64_t microseconds);

std::optional<StoredObject> findObject(Connection& connection, const std::string& key);

/// The same, but a missing object is a ResourceNotFoundException.
StoredObject getExistingObject(Connection& connection, const std::string& key);

/// The same, but a version that is not the stored one is an ObjectChanged, also when there is no object. Empty: any.
StoredObject getExistingObject(Connection& connection, const std::string& key, const std::string& version);

/// Throw an ObjectChanged when what is stored is not what is expected. subject: what the text calls the object.
void requireExpected(Connection& connection, const std::string& key, const ExpectedObject& expected,
                     const std::string& subject = "it");

/// Throw a StoreFailure when an object has not that many bytes from offset on.
void requireRange(const StoredObject& object, std::uint64_t offset, std::uint64_t size);

/// The version of an object whose content has that number.
std::string makeVersion(std::int64_t content);

/// Make a content the object of that key, as of now; what was there before is dropped. parts: how many it was uploaded
/// in, with notePart; 0: it was put whole.
///
/// Result   whether something of what was there is left, to be removed as an abandoned upload.
bool replaceObject(Connection& connection, const std::string& key, std::int64_t content, std::uint64_t size,
                   std::int64_t parts);

/// Note a part of a content that was uploaded in parts. The index of part is its number in the upload.
void notePart(Connection& connection, std::int64_t content, const PartInfo& part);

/// Make an object's bytes and layout the object of another key, as of now. No byte is copied. Throws as
/// getExistingObject, and ObjectChanged when what is at the destination is not what is expected. Result: as
/// replaceObject.
bool copyObject(Connection& connection, const std::string& from, const std::string& fromVersion, const std::string& to,
                const ExpectedObject& expected);

/// Remove an object and its content. Throws as getExistingObject. Result: as replaceObject.
bool removeObject(Connection& connection, const std::string& key, const std::string& version);

/// The version and the layout of an object, if it is there.
std::optional<ObjectDescription> describeObject(Connection& connection, const std::string& key);

/// Whether an object has a part of that offset, size and tag, or is itself that part. The part must lie within the
/// object.
bool hasPart(Connection& connection, const StoredObject& object, const PartInfo& part);

}  // namespace storage::cloudprovider::sqlite
