// SPDX-License-Identifier: Apache-2.0
// Profile files: whatever somebody has in ~/.aws, and that settings are read as they stand there.
#include "profileFiles.hpp"
#include "require.hpp"
#include "text.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

namespace {

using fuzz::require;
using namespace storage::cloudprovider::s3;

bool isTrimmed(const std::string& text) {
    return trim(text) == text;
}

void checkAnyFile(const std::string& text, const std::string& name) {
    std::istringstream file(text);
    if (const auto profile = readProfile(file, name)) {
        require(text.find('[') != std::string::npos, "a profile has a section");
        for (const auto& [setting, value] : *profile) {
            require(isTrimmed(setting) && isTrimmed(value), "blanks around a setting do not count");
            require(toLower(setting) == setting, "names of settings are in lower case");
            require(text.find(value) != std::string::npos, "a value stands in the file as it is");
        }
    }
}

// Without what a line of a file cannot hold, or means something else in it.
std::string toWord(std::string text) {
    text.erase(
        std::remove_if(text.begin(), text.end(), [](char byte) { return byte == '\n' || byte == ']' || byte == '='; }),
        text.end());
    return std::string(trim(text));
}

void checkWrittenFile(const std::string& before, const std::string& name, const std::string& setting,
                      const std::string& value) {
    if (name.empty() || setting.empty() || setting[0] == '#' || setting[0] == ';' || setting[0] == '[') {
        return;  // no name, an indented line, a comment, or a section
    }
    for (const auto* const kind : {"[", "[profile "}) {
        std::istringstream file(before + "\n" + kind + name + "]\n" + setting + " = " + value + "\n");
        const auto profile = readProfile(file, name);
        const bool hasProfileInName = name.rfind("profile", 0) == 0;
        if (!profile) {
            require(hasProfileInName, "a section that is there is found");
        } else if (!hasProfileInName) {
            const auto found = profile->find(toLower(setting));
            require(found != profile->end() && found->second == value, "a setting is read as it stands there");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    const auto name = toWord(input.ConsumeRandomLengthString(20));
    const auto setting = toWord(input.ConsumeRandomLengthString(20));
    const auto value = toWord(input.ConsumeRandomLengthString(40));
    const auto text = input.ConsumeRemainingBytesAsString();
    checkAnyFile(text, name);
    checkWrittenFile(text, name, setting, value);
    return 0;
}
