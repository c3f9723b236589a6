// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/StorageIRI.hpp>

#include <string>
#include <string_view>

namespace cloudfs {

/// A path in the store as people write it: absolute, components separated by "/". A plain value.
///
/// Empty components and "." say nothing and are dropped; ".." is refused.
class StorePath {
public:
    /// Errors   UsageError when text is not absolute or has a "..", Failure when it is not valid UTF-8.
    explicit StorePath(std::string_view text);

    /// "/a/b", or "/" for the root.
    const std::string& text() const noexcept { return m_text; }

    /// The last component; empty for the root.
    std::string name() const;

    /// The path above; the root is above itself.
    StorePath parent() const;

    bool isRoot() const noexcept { return m_text.size() == 1; }

    /// Whether only a folder can be meant: the root, and what was written with a "/" or "/." at its end.
    bool meansFolder() const noexcept { return m_meansFolder; }

    /// Whether the other path is this one, or lies below it.
    bool contains(const StorePath& other) const;

    /// The path of what lies below, by its name relative to this one, which is taken as it is.
    StorePath child(std::string_view name) const;

    /// The key of the object that a file at this path is; empty for the root.
    std::string key() const;

    /// The identifier of that key.
    foundation::storage::provider::StorageIRI iri() const;

    /// The path that an identifier stands for.
    static std::string displayText(const foundation::storage::provider::StorageIRI& iri);

private:
    StorePath() = default;

    std::string m_text = "/";
    bool m_meansFolder = false;
};

}  // namespace cloudfs
