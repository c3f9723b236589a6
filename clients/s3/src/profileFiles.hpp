// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>
#include <map>
#include <optional>
#include <string>

namespace storage::cloudprovider::s3 {

/// Settings by name.
using Profile = std::map<std::string, std::string>;

/// Read one section of a file of profiles, as AWS's tools write them: "[name]" or "[profile name]", "name = value",
/// comments after "#" or ";" at the start of a line. Indented lines belong to a setting of their own kind and are
/// skipped; a section that comes again adds to the former.
///
/// Result   nothing when there is no such section.
std::optional<Profile> readProfile(std::istream& file, const std::string& name);

}  // namespace storage::cloudprovider::s3
