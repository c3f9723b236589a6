// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/FolderEntry.hpp>

#include <boost/optional.hpp>

#include <memory>
#include <string>
#include <string_view>

namespace foundation::storage::provider {

/// Whether the whole name matches the pattern: "*" any run of characters, "?" one character (a surrogate pair
/// is one). Takes time proportional to the product of the lengths at worst.
bool matchesWildcard(std::u16string_view name, std::u16string_view pattern);

/// The entries of another iterator whose last name component matches a pattern.
class WildcardIterator : public IClonableFolderEntryIterator<WildcardIterator> {
public:
    WildcardIterator(std::unique_ptr<IFolderEntryIterator> entries, std::u16string pattern);
    WildcardIterator(const WildcardIterator& other);
    WildcardIterator& operator=(const WildcardIterator&) = delete;

    FolderEntry get() const override;
    bool hasNext() const override;
    void next() override;

private:
    void findAhead();

    std::unique_ptr<IFolderEntryIterator> m_entries;
    std::u16string m_pattern;
    boost::optional<FolderEntry> m_current;
    boost::optional<FolderEntry> m_ahead;
};

}  // namespace foundation::storage::provider
