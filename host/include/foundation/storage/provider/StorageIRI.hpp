// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>

#include <iosfwd>
#include <string>
#include <string_view>

namespace foundation::storage::provider {

/// Identifies a file or folder: an optional `scheme://authority` and a path of UTF-16 text.
///
/// A value: copies are independent, and a const object may be shared by threads. The text is kept as given;
/// nothing is decoded, and unpaired surrogates are kept.
class FOUNDATION_HOST_EXPORT StorageIRI {
public:
    /// An identifier without scheme, authority and path.
    StorageIRI() = default;

    /// Read `scheme://authority/path`, `scheme://authority` (no path), a bare `/path`, or the empty text (no
    /// path). Any other text is taken as a path.
    explicit StorageIRI(std::u16string text);

    /// The same from UTF-8. Throws InvalidTextError when the text is not valid UTF-8.
    static StorageIRI fromUtf8(std::string_view text);

    /// The same scheme and authority with another path, which may be empty.
    StorageIRI withPath(std::u16string path) const;

    /// Whether there is a path, be it the root's.
    bool hasPath() const noexcept { return !m_path.empty(); }

    /// The path, with its leading "/" where it has one; empty when there is none.
    const std::u16string& getPath() const noexcept { return m_path; }

    /// The last component of the path, trailing "/" left aside; empty for the root and without a path.
    std::u16string getName() const;

    /// Whether the path has a component to take away: false for the root and without a path.
    bool hasParent() const;

    /// The identifier with its last component taken away: the parent of /a/b is /a, that of /a is the root.
    /// Throws std::logic_error when there is no parent.
    StorageIRI getParent() const;

    /// The whole text in UTF-8, for people: unpaired surrogates appear as U+FFFD.
    std::string toDisplayText() const;

    /// Order by scheme and authority, then by path, UTF-16 unit by unit.
    friend FOUNDATION_HOST_EXPORT bool operator<(const StorageIRI& left, const StorageIRI& right);
    /// Whether scheme, authority and path are the same texts.
    friend FOUNDATION_HOST_EXPORT bool operator==(const StorageIRI& left, const StorageIRI& right);

    /// Write toDisplayText().
    friend FOUNDATION_HOST_EXPORT std::ostream& operator<<(std::ostream& stream, const StorageIRI& iri);

private:
    std::u16string m_authority;  // "scheme://authority", or empty
    std::u16string m_path;
};

}  // namespace foundation::storage::provider
