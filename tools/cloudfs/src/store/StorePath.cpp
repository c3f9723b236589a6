// SPDX-License-Identifier: Apache-2.0
#include "store/StorePath.hpp"

#include "terminal/failures.hpp"

#include <storage/cloudprovider/utils.hpp>

namespace cloudfs {

using foundation::storage::provider::StorageIRI;
namespace utils = storage::cloudprovider::utils;

namespace {

// Calls visit(component) for each run between slashes, the empty ones too.
template <typename Visit>
void forEachComponent(std::string_view text, Visit visit) {
    while (true) {
        const auto slash = text.find('/');
        visit(text.substr(0, slash));
        if (slash == std::string_view::npos) {
            return;
        }
        text.remove_prefix(slash + 1);
    }
}

}  // namespace

StorePath::StorePath(std::string_view text) {
    if (text.empty() || text.front() != '/') {
        throw UsageError("a path in the store begins with \"/\": " + std::string(text));
    }
    failUnlessUtf8(std::string(text));
    std::string joined;
    std::string_view last;
    forEachComponent(text, [&](std::string_view component) {
        last = component;
        if (component == "..") {
            throw UsageError("a path in the store knows no \"..\": " + std::string(text));
        }
        if (!component.empty() && component != ".") {
            joined.append("/").append(component);
        }
    });
    m_meansFolder = last.empty() || last == ".";
    if (!joined.empty()) {
        m_text = std::move(joined);
    }
}

std::string StorePath::name() const {
    return m_text.substr(m_text.rfind('/') + 1);
}

StorePath StorePath::parent() const {
    StorePath result;
    if (const auto slash = m_text.rfind('/'); slash > 0) {
        result.m_text = m_text.substr(0, slash);
    }
    return result;
}

bool StorePath::contains(const StorePath& other) const {
    const auto beginning = isRoot() ? m_text : m_text + "/";
    return (other.m_text + "/").compare(0, beginning.size(), beginning) == 0;
}

StorePath StorePath::child(std::string_view name) const {
    StorePath result;
    result.m_text = isRoot() ? "/" : m_text + "/";
    result.m_text.append(name);
    return result;
}

std::string StorePath::key() const {
    return m_text.substr(1);
}

StorageIRI StorePath::iri() const {
    return StorageIRI(utils::keyToPath(key()));
}

std::string StorePath::displayText(const StorageIRI& iri) {
    return '/' + utils::iriToKey(iri);
}

}  // namespace cloudfs
