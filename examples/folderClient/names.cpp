// SPDX-License-Identifier: Apache-2.0
#include "names.hpp"

#include <algorithm>
#include <climits>
#include <cstddef>

namespace example {

namespace {

constexpr char kFolderMark = '%';
constexpr const char* kMarker = "%marker";
constexpr const char* kDigits = "0123456789ABCDEF";

// Nothing that escape answers ends in "%", begins with ".", or has a "%" without two digits after it.
std::string escape(const std::string& component) {
    std::string name;
    for (const char each : component) {
        if (each == '%' || each == '\0' || (each == '.' && name.empty())) {
            const auto byte = static_cast<unsigned char>(each);
            name += {'%', kDigits[byte / 16], kDigits[byte % 16]};
        } else {
            name += each;
        }
    }
    return name;
}

// Whatever name is; one that escape does not answer gives a component that it is not answered for.
std::string unescape(const std::string& name) {
    const std::string digits = kDigits;
    std::string component;
    for (std::size_t at = 0; at < name.size(); ++at) {
        if (name[at] == '%' && at + 2 < name.size()) {
            const auto high = digits.find(name[at + 1]);
            const auto low = digits.find(name[at + 2]);
            component += static_cast<char>(high * 16 + low);
            at += 2;
        } else {
            component += name[at];
        }
    }
    return component;
}

}  // namespace

std::filesystem::path pathOf(const std::filesystem::path& folder, const std::string& key) {
    auto path = folder;
    std::size_t begin = 0;
    for (auto end = key.find('/'); end != key.npos; end = key.find('/', begin)) {
        path /= escape(key.substr(begin, end - begin)) + kFolderMark;
        begin = end + 1;
    }
    const auto name = escape(key.substr(begin));
    return path / (name.empty() ? kMarker : name);
}

bool isStorable(const std::filesystem::path& path) {
    return path.native().size() < PATH_MAX &&
           std::all_of(path.begin(), path.end(), [](const auto& each) { return each.native().size() <= NAME_MAX; });
}

Entry entryOf(const std::string& fileName) {
    if (fileName == kMarker) {
        return {{}, false, true};
    }
    const bool isFolder = fileName.back() == kFolderMark;
    const auto name = fileName.substr(0, fileName.size() - (isFolder ? 1 : 0));
    const auto component = unescape(name);
    return {component + (isFolder ? "/" : ""), isFolder, escape(component) == name};
}

}  // namespace example
