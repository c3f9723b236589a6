// SPDX-License-Identifier: Apache-2.0
// Identifiers and keys: any text, as UTF-8 and as UTF-16, valid or not.
#include "provider/getResolvedIRI.hpp"
#include "require.hpp"

#include <foundation/services/Text.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace {

using foundation::storage::provider::StorageIRI;
using fuzz::require;
using storage::cloudprovider::getResolvedIRI;
namespace utils = storage::cloudprovider::utils;

std::optional<std::string> utf8Of(const std::u16string& text) {
    try {
        return foundation::toUtf8(text);
    } catch (const foundation::InvalidTextError&) {
        return std::nullopt;
    }
}

std::optional<std::u16string> utf16Of(const std::string& text) {
    try {
        return foundation::toUtf16(text);
    } catch (const foundation::InvalidTextError&) {
        return std::nullopt;
    }
}

void checkParents(StorageIRI iri) {
    while (iri.hasParent()) {
        const auto parent = iri.getParent();
        require(parent.hasPath() && (parent.getPath().size() < iri.getPath().size() || !parent.hasParent()),
                "the way up ends");
        require(iri.getName().find(u'/') == std::u16string::npos && !iri.getName().empty(), "a name is one component");
        iri = parent;
    }
}

void checkIdentifier(const std::u16string& text) {
    const StorageIRI iri(text);
    checkParents(iri);
    const auto path = utf8Of(iri.getPath());
    try {
        auto key = utils::iriToKey(iri);
        require(path.has_value(), "only a valid path has a key");
        require(key.find("//") == std::string::npos && (key.empty() || key.front() != '/'),
                "no component of a key is empty, but for a folder's last one");
        const auto resolved = getResolvedIRI(iri);
        if (utils::hasTrailingSlash(key)) {
            key.pop_back();
        }
        require(utils::iriToKey(resolved) == key, "resolving keeps the key");
        require(getResolvedIRI(resolved) == resolved, "resolving again changes nothing");
        require(resolved.withPath(iri.getPath()) == iri, "resolving keeps scheme and authority");
    } catch (const storage::cloudprovider::InvalidLocationException&) {
        require(!path, "a valid path has a key");
    }
}

void checkKey(const std::string& key) {
    const auto units = utf16Of(key);
    try {
        const auto path = utils::keyToPath(key);
        require(units.has_value(), "only a valid key has a path");
        if (key.empty() || ('/' + key + '/').find("//") == std::string::npos) {
            require(utils::iriToKey(StorageIRI(path)) == key, "the path of a key is the key's");
        }
    } catch (const foundation::InvalidTextError&) {
        require(!units, "a valid key has a path");
    }
}

void checkText(const std::string& text) {
    const auto units = utf16Of(text);
    const auto shown = foundation::toUtf16Lossy(text);
    require(utf8Of(shown).has_value(), "what is shown is valid");
    if (units) {
        require(shown == *units && foundation::toUtf8(*units) == text, "valid text is the same there and back");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::u16string units(size / sizeof(char16_t), u'\0');
    std::memcpy(units.data(), data, units.size() * sizeof(char16_t));
    checkText(text);
    checkKey(text);
    checkIdentifier(units);
    checkIdentifier(foundation::toUtf16Lossy(text));
    return 0;
}
