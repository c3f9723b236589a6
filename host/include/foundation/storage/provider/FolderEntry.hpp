// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/Attributes.hpp>

#include <memory>
#include <string>
#include <variant>

namespace foundation::storage::provider {

/// One file or folder in a listing. A plain value.
class FOUNDATION_HOST_EXPORT FolderEntry {
public:
    /// A file.
    FolderEntry(std::u16string name, FileAttributes attributes) : m_name(std::move(name)), m_attributes(attributes) {}
    /// A folder.
    FolderEntry(std::u16string name, FolderAttributes attributes) : m_name(std::move(name)), m_attributes(attributes) {}

    /// The path relative to the listed folder, without a trailing "/"; one component unless listed recursively.
    const std::u16string& getName() const noexcept { return m_name; }

    /// Whether it is a file.
    bool isFile() const noexcept { return std::holds_alternative<FileAttributes>(m_attributes); }
    /// Whether it is a folder.
    bool isFolder() const noexcept { return !isFile(); }

    /// Throws std::bad_variant_access when the entry is a folder.
    const FileAttributes& getFileAttributes() const { return std::get<FileAttributes>(m_attributes); }

    /// Throws std::bad_variant_access when the entry is a file.
    const FolderAttributes& getFolderAttributes() const { return std::get<FolderAttributes>(m_attributes); }

private:
    std::u16string m_name;
    std::variant<FileAttributes, FolderAttributes> m_attributes;
};

/// Walks a folder's entries: `while (it->hasNext()) { it->next(); use(it->get()); }`.
/// One thread at a time; a clone is independent of its original.
class FOUNDATION_HOST_EXPORT IFolderEntryIterator {
public:
    /// A copy of the current entry. Throws std::logic_error before the first next.
    virtual FolderEntry get() const = 0;

    /// Whether next has an entry to move to; never does I/O.
    virtual bool hasNext() const = 0;

    /// Move to the next entry. May ask the store for more; such a failure is an Exception, and the entry
    /// moved to stays valid. Throws std::logic_error when there is no next entry.
    virtual void next() = 0;

    /// An iterator of the same type at the same place, which goes on independently. Does no I/O.
    virtual std::unique_ptr<IFolderEntryIterator> clone() const = 0;

    virtual ~IFolderEntryIterator();

protected:
    IFolderEntryIterator() = default;                                        ///< for iterators of a provider
    IFolderEntryIterator(const IFolderEntryIterator&) = default;             ///< for clone
    IFolderEntryIterator& operator=(const IFolderEntryIterator&) = default;  ///< for iterators of a provider
};

/// Implements clone for Derived by its copy constructor.
template <typename Derived>
class IClonableFolderEntryIterator : public IFolderEntryIterator {
public:
    std::unique_ptr<IFolderEntryIterator> clone() const override {
        return std::make_unique<Derived>(static_cast<const Derived&>(*this));
    }
};

}  // namespace foundation::storage::provider
