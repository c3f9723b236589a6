// SPDX-License-Identifier: Apache-2.0
#include "profileFiles.hpp"

#include "text.hpp"

#include <istream>
#include <string_view>

namespace storage::cloudprovider::s3 {

namespace {

constexpr std::string_view kProfile = "profile";

// The name of a section's profile.
std::string_view toProfileName(std::string_view header) {
    const auto text = trim(header.substr(1, header.find(']') - 1));
    const auto rest = text.substr(std::min(text.size(), kProfile.size()));
    return text.starts_with(kProfile) && rest.find_first_of(" \t") == 0 ? trim(rest) : text;
}

}  // namespace

std::optional<Profile> readProfile(std::istream& file, const std::string& name) {
    std::optional<Profile> profile;
    bool isInside = false;
    for (std::string line; std::getline(file, line);) {
        const auto equals = line.find('=');
        const bool isIndented = line.starts_with(' ') || line.starts_with('\t');
        if (line.starts_with('[')) {
            isInside = toProfileName(line) == name;
            profile = isInside && !profile ? Profile() : std::move(profile);
        } else if (isInside && !isIndented && equals != line.npos && line[0] != '#' && line[0] != ';') {
            profile->insert_or_assign(toLower(trim(std::string_view(line).substr(0, equals))),
                                      std::string(trim(std::string_view(line).substr(equals + 1))));
        }
    }
    return profile;
}

}  // namespace storage::cloudprovider::s3
