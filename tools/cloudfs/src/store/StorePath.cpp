// SPDX-License-Identifier: Apache-2.0
#include "store/StorePath.hpp"

#include "terminal/failures.hpp"

#include <foundation/services/Text.hpp>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::StorageIRI;

namespace {

void failUnlessUtf8(std::string_view text) {
    try {
        foundation::toUtf16(text);
    } catch (const foundation::InvalidTextError&) {
        throw Failure(ErrorCode::InvalidLocation, std::string(text), "the path is not valid UTF-8");
    }
}

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

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace

StorePath::StorePath(std::string_view text) {
    if (text.empty() || text.front() != '/') {
        throw UsageError("a path in the store begins with \"/\": " + std::string(text));
    }
    failUnlessUtf8(text);
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

StorePath StorePath::child(std::string_view name) const {
    StorePath result;
    result.m_text = isRoot() ? "/" : m_text + "/";
    result.m_text.append(name);
    return result;
}

// Keys are made without one "." before each "/" and at the end, so a component that ends in one needs one
// more to keep it.
StorageIRI StorePath::iri() const {
    std::string escaped;
    forEachComponent(std::string_view(m_text).substr(1), [&](std::string_view component) {
        escaped.append("/").append(component);
        if (endsWith(component, ".")) {
            escaped.push_back('.');
        }
    });
    return StorageIRI::fromUtf8(escaped);
}

std::string StorePath::displayText(const StorageIRI& iri) {
    const auto text = iri.toDisplayText();
    std::string result;
    forEachComponent(text, [&](std::string_view component) {
        if (endsWith(component, "..")) {
            component.remove_suffix(1);
        }
        result.append(component).push_back('/');
    });
    result.pop_back();
    return result;
}

}  // namespace cloudfs
