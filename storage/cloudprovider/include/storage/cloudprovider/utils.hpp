// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/export.hpp>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <string>

/// Between the host's paths and times and those of a store. Threads: any.
namespace storage::cloudprovider::utils {

/// "/", between the components of keys and paths.
CLOUDPROVIDER_EXPORT char separator() noexcept;

/// ".", which canonicalize treats specially.
CLOUDPROVIDER_EXPORT char dot() noexcept;

/// Put "/" in front unless the text begins with it; the empty text becomes "/".
CLOUDPROVIDER_EXPORT std::u16string addLeadingSlash(const std::u16string& text);

/// Take exactly one leading "/" away, if there is one.
CLOUDPROVIDER_EXPORT std::u16string removeLeadingSlash(const std::u16string& text);

/// Take exactly one trailing "/" away, if there is one.
CLOUDPROVIDER_EXPORT std::u16string removeTrailingSlash(std::u16string text);

/// Whether a key ends in "/", as a folder marker's does; false for the empty key.
CLOUDPROVIDER_EXPORT bool hasTrailingSlash(const std::string& key);

/// Append "/" unless the key ends in it or is empty: the root's prefix is empty.
CLOUDPROVIDER_EXPORT std::string ensureTrailingSlash(std::string key);

/// Simplify a path textually: drop each "." that stands right before a "/", then a "." at the very end, then
/// all but one "/" of each run.
///
/// It knows nothing of components: a/./b becomes a/b, but x../y becomes x./y, and doing it again changes that again.
CLOUDPROVIDER_EXPORT std::u16string canonicalize(const std::u16string& path);

/// Answer the key of an identifier: its canonical path in UTF-8 without the leading "/"; empty for the root
/// and for an identifier without a path. Scheme and authority do not count.
///
/// Errors   InvalidLocationException when the path is not valid UTF-16.
CLOUDPROVIDER_EXPORT std::string iriToKey(const foundation::storage::provider::StorageIRI& iri);

/// Answer the path of a key, for which iriToKey answers that key: canonicalize takes a "." before each "/" and one at
/// the end, so a component that ends in one gets one more. "/" for the empty key. A key with an empty component, as
/// behind a "/" at its end, has no such path: that component is lost.
///
/// Errors   foundation::InvalidTextError when the key is not valid UTF-8.
CLOUDPROVIDER_EXPORT std::u16string keyToPath(const std::string& key);

/// Convert milliseconds since 1970-01-01 00:00:00 UTC, cut to whole seconds toward zero; not_a_date_time for
/// NaN and for times that a ptime cannot hold (before the year 1400, after 9999).
CLOUDPROVIDER_EXPORT boost::posix_time::ptime double2Ptime(double milliseconds);

/// Convert milliseconds since 1970-01-01 00:00:00 UTC exactly; not_a_date_time for times that a ptime cannot hold.
CLOUDPROVIDER_EXPORT boost::posix_time::ptime long2Ptime(std::int64_t milliseconds);

}  // namespace storage::cloudprovider::utils
