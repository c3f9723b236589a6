// SPDX-License-Identifier: Apache-2.0
#include "mount/FileSystem.hpp"

#include "mount/errnoOf.hpp"
#include "mount/log.hpp"
#include "terminal/escapeText.hpp"

#include <foundation/storage/provider/Exception.hpp>
#include <storage/cloudprovider/CloudException.hpp>

#include <cerrno>
#include <sstream>
#include <utility>

namespace cloudfs::mount {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::ReplacementPolicy;
using storage::cloudprovider::ExpectedObject;
using storage::cloudprovider::ResourceInUseException;

namespace {

void checkName(const std::string& name) {
    if (name.size() > kLongestName) {
        throw ErrnoError(ENAMETOOLONG);
    }
    if (!isUtf8(name)) {
        throw ErrnoError(EILSEQ);
    }
}

}  // namespace

FileSystem::FileSystem(std::shared_ptr<storage::cloudprovider::ExtendedCloudClient> client,
                       const std::shared_ptr<IProvider>& provider, std::chrono::nanoseconds remembered)
    : m_store{std::move(client), provider, std::make_shared<Listings>(provider, remembered)},
      m_files(m_store, m_inodes) {}

StorePath FileSystem::childOf(NodeId parent, const std::string& name) const {
    auto path = m_inodes.get(parent).path.child(name);
    if (path.key().size() > m_store.client->limits().LongestKey) {
        throw ErrnoError(ENAMETOOLONG);
    }
    return path;
}

Attributes FileSystem::lookup(NodeId parent, const std::string& name) {
    if (!isUtf8(name)) {
        throw ErrnoError(ENOENT);
    }
    const auto path = childOf(parent, name);
    if (const auto known = m_inodes.find(path)) {
        if (const auto file = m_files.find(*known); file && file->isUnsaved()) {
            return enter(path, {});  // whatever the store has at this moment
        }
    }
    const auto entry = m_store.listings->find(path);
    if (!entry) {
        throw ErrnoError(ENOENT);
    }
    return enter(path, *entry);
}

Attributes FileSystem::enter(const StorePath& path, const StoredEntry& entry) {
    const auto id = m_inodes.enter(path, entry.isFolder);
    return describe(id, m_inodes.get(id), entry);
}

void FileSystem::forget(NodeId node, std::uint64_t references) noexcept {
    m_inodes.release(node, references);
}

Attributes FileSystem::attributes(NodeId id) {
    const auto node = m_inodes.get(id);
    if (node.isFolder || !node.isLinked) {
        return describe(id, node, std::nullopt);
    }
    const auto file = m_files.find(id);
    if (file && file->isUnsaved()) {
        return describe(id, node, std::nullopt);
    }
    try {
        const auto entry = m_store.listings->find(node.path);
        if (!file && (!entry || entry->isFolder)) {
            throw ErrnoError(ENOENT);
        }
        return describe(id, node, entry);
    } catch (const Exception&) {
        if (!file || !file->isOpen()) {
            throw;
        }
        return describe(id, node, std::nullopt);  // who has it open goes on without the store
    }
}

Attributes FileSystem::describe(NodeId id, const Node& node, const std::optional<StoredEntry>& entry) {
    Attributes attributes{id, node.shown, node.isFolder, node.isLinked, 0, node.changed};
    if (node.isFolder) {
        return attributes;
    }
    if (entry) {
        attributes.size = entry->size;
        attributes.modified = entry->modified.value_or(attributes.modified);
    }
    if (const auto file = m_files.find(id)) {
        const auto status = file->status();
        attributes.size = status.size.value_or(attributes.size);
        attributes.modified = status.modified.value_or(attributes.modified);
    }
    m_inodes.tell(id, attributes.size);
    return attributes;
}

void FileSystem::noteChange(const StorePath& path) {
    m_store.listings->forget(path);
    m_inodes.touch(path.parent());
}

void FileSystem::resize(NodeId node, std::optional<HandleId> handle, std::uint64_t size) {
    if (handle) {
        opened(*handle)->pin->resize(size);
    } else {
        const OpenFiles::Pin file(m_files, node);
        file->resizeNow(size);
    }
}

std::pair<Attributes, Opened> FileSystem::create(NodeId parent, const std::string& name, const OpenMode& mode,
                                                 bool mustBeNew) {
    checkName(name);
    const auto path = childOf(parent, name);
    const bool isNew = createObject(path);
    if (!isNew && mustBeNew) {
        throw ErrnoError(EEXIST);
    }
    noteChange(path);
    const auto attributes = isNew ? enter(path, {.modified = std::chrono::system_clock::now()}) : lookup(parent, name);
    try {
        return {attributes, open(attributes.node, mode)};
    } catch (...) {
        forget(attributes.node, 1);
        throw;
    }
}

// Tells whether it was not there.
bool FileSystem::createObject(const StorePath& path) {
    std::istringstream nothing;
    try {
        m_store.client->checkObjectName(path.name());
        m_store.client->putObjectOver(path.key(), nothing, 0, ExpectedObject::absent());
        return true;
    } catch (const ResourceInUseException&) {
        if (m_store.provider->fileExists(path.iri())) {
            return false;
        }
        throw;
    }
}

// The kernel looks a path up again, and opens it once more, when it gets ESTALE: so it comes to know the size that the
// file has by now, on which appending and reading to the end rely.
Opened FileSystem::open(NodeId node, const OpenMode& mode) {
    if (!m_inodes.get(node).isLinked) {
        throw ErrnoError(ESTALE);
    }
    const auto result = std::make_shared<FileOpened>(m_files, node);
    auto& file = *result->pin;
    setAsideIfConflicted(node, file);
    Opened answer{.keepsCache = file.isOpen()};
    try {
        result->handle = file.open(mode, m_inodes.toldSize(node));
    } catch (const ErrnoError&) {
        m_store.listings->forget(m_inodes.get(node).path);
        throw;
    }
    const foundation::MutexLock lock(m_mutex);
    answer.handle = ++m_last;
    m_opened.emplace(answer.handle, result);
    return answer;
}

// It can never be stored at its path. Who opens that gets what is there.
void FileSystem::setAsideIfConflicted(NodeId node, const OpenFile& file) {
    if (file.isConflicted()) {
        m_inodes.unlink(node);
        throw ErrnoError(ESTALE);
    }
}

std::size_t FileSystem::read(HandleId handle, char* buffer, std::size_t size, std::uint64_t offset) {
    const auto description = opened(handle);
    return description->pin->read(*description->handle, buffer, size, offset);
}

void FileSystem::write(HandleId handle, std::string_view data, std::uint64_t offset) {
    opened(handle)->pin->write(data, offset);
}

void FileSystem::flush(HandleId handle) {
    const auto description = opened(handle);
    if (description->handle->writes()) {
        description->pin->store();
    }
}

void FileSystem::store(HandleId handle) {
    opened(handle)->pin->store();
}

void FileSystem::release(HandleId handle) noexcept {
    std::shared_ptr<FileOpened> description;
    {
        const foundation::MutexLock lock(m_mutex);
        const auto found = m_opened.find(handle);
        if (found == m_opened.end()) {
            return;
        }
        description = std::move(found->second);
        m_opened.erase(found);
    }
    if (const auto size = description->pin->status().size) {
        m_inodes.tell(description->pin.node(), *size);
    }
    description->pin->close(*description->handle);
}

Attributes FileSystem::makeFolder(NodeId parent, const std::string& name) {
    checkName(name);
    const auto path = childOf(parent, name);
    m_store.provider->createFolder(path.iri());
    noteChange(path);
    return enter(path, {.isFolder = true});
}

// A folder without a marker has gone with the last file that it held.
void FileSystem::removeFolder(NodeId parent, const std::string& name) {
    const auto path = childOf(parent, name);
    try {
        m_store.provider->removeFolder(path.iri());
    } catch (const Exception& failure) {
        const auto known = m_inodes.find(path);
        if (failure.getErrorCode() != ErrorCode::NotFound || !known || !m_inodes.get(*known).isFolder) {
            throw;
        }
    }
    noteChange(path);
    if (const auto known = m_inodes.find(path)) {
        m_inodes.unlink(*known);
    }
}

void FileSystem::removeFile(NodeId parent, const std::string& name) {
    const auto path = childOf(parent, name);
    const auto known = m_inodes.find(path);
    if (!known) {
        m_store.provider->removeFile(path.iri());
        noteChange(path);
        return;
    }
    const OpenFiles::Pin file(m_files, *known);
    const auto alone = file->alone();
    m_store.client->deleteObject(path.key());
    file->leaveName();
    m_inodes.unlink(*known);
    noteChange(path);
    m_store.listings->forget(path.parent());  // which may have gone with its last file
}

// The new name has the whole file before the old one goes. Whoever opens either of the two waits.
void FileSystem::rename(NodeId fromParent, const std::string& fromName, NodeId toParent, const std::string& toName,
                        bool mayReplace) {
    checkName(toName);
    const auto from = childOf(fromParent, fromName);
    const auto to = childOf(toParent, toName);
    const auto moved = m_inodes.find(from);
    if (!moved) {
        throw ErrnoError(ENOENT);
    }
    if (m_inodes.get(*moved).isFolder) {
        throw ErrnoError(EXDEV);
    }
    const auto replaced = m_inodes.find(to);
    if (replaced && m_inodes.get(*replaced).isFolder) {
        throw ErrnoError(EISDIR);
    }
    if (moved == replaced) {
        return;
    }
    const OpenFiles::Pin source(m_files, *moved);
    std::optional<OpenFiles::Pin> destination;
    OpenFile::Alone first;
    OpenFile::Alone second;
    if (replaced) {
        destination.emplace(m_files, *replaced);
        const bool isSourceFirst = *moved < *replaced;
        first = (isSourceFirst ? *source : **destination).alone();
        second = (isSourceFirst ? **destination : *source).alone();
    } else {
        first = source->alone();
    }
    source->storeAlone();
    const auto description = m_store.client->describeObject(from.key());
    if (!description) {
        throw ErrnoError(ENOENT);
    }
    const bool isReplacing = mayReplace && destination;
    if (isReplacing && (*destination)->isOpen()) {
        (*destination)->fetchSome();
    }
    const bool isCopied = copyInside(from.key(), description->Version, to.key(), mayReplace);
    if (isReplacing) {
        (*destination)->leaveName();
        m_inodes.unlink(*replaced);
    }
    if (!isCopied) {
        m_store.provider->copyFile(from.iri(), to.iri(),
                                   mayReplace ? ReplacementPolicy::Replace : ReplacementPolicy::Fail);
    }
    noteChange(to);
    m_store.client->removeObject(from.key(), description->Version);
    source->moveTo(to);
    m_inodes.move(*moved, to);
    noteChange(from);
}

// Errors: ErrnoError EEXIST for what must not be replaced.
bool FileSystem::copyInside(const std::string& from, const std::string& version, const std::string& to,
                            bool mayReplace) {
    try {
        return m_store.client->copyObject(from, version, to,
                                          mayReplace ? ExpectedObject::anything() : ExpectedObject::absent());
    } catch (const ResourceInUseException&) {
        if (!mayReplace && m_store.client->getObjectInfo(to)) {
            throw ErrnoError(EEXIST);
        }
        throw;
    }
}

HandleId FileSystem::openFolder(NodeId node) {
    auto folder = std::make_shared<FolderOpened>(FolderOpened{m_inodes.get(node).path, nullptr, {}});
    fill(*folder);
    const foundation::MutexLock lock(m_mutex);
    m_openedFolders.emplace(++m_last, std::move(folder));
    return m_last;
}

void FileSystem::fill(FolderOpened& folder) {
    folder.listing = m_store.listings->list(folder.path);
    folder.names = {".", ".."};
    for (const auto& [name, entry] : folder.listing->entries) {
        folder.names.push_back(name);
    }
}

// The kernel has one reader of a directory at a time.
void FileSystem::rewind(HandleId handle) {
    const auto folder = openedFolder(handle);
    if (!std::exchange(folder->isFresh, false)) {
        fill(*folder);
    }
}

std::optional<FileSystem::Listed> FileSystem::listed(HandleId handle, std::uint64_t place) {
    const auto folder = openedFolder(handle);
    if (place >= folder->names.size()) {
        return std::nullopt;
    }
    const auto& name = folder->names[place];
    if (place < 2) {
        return Listed{name, true, m_inodes.shownNumber(place == 0 ? folder->path : folder->path.parent())};
    }
    return Listed{name, folder->listing->entries.at(name).isFolder, m_inodes.shownNumber(folder->path.child(name))};
}

std::optional<Attributes> FileSystem::lookupListed(HandleId handle, std::uint64_t place) {
    const auto folder = openedFolder(handle);
    if (place < 2 || place >= folder->names.size()) {
        return std::nullopt;
    }
    const auto& name = folder->names[place];
    const auto path = folder->path.child(name);
    const auto entry = m_store.listings->find(*folder->listing, path);
    return entry ? std::optional(enter(path, *entry)) : std::nullopt;
}

void FileSystem::releaseFolder(HandleId handle) noexcept {
    const foundation::MutexLock lock(m_mutex);
    m_openedFolders.erase(handle);
}

std::shared_ptr<FileSystem::FileOpened> FileSystem::opened(HandleId handle) const {
    const foundation::MutexLock lock(m_mutex);
    const auto found = m_opened.find(handle);
    if (found == m_opened.end()) {
        throw ErrnoError(EBADF);
    }
    return found->second;
}

std::shared_ptr<FileSystem::FolderOpened> FileSystem::openedFolder(HandleId handle) const {
    const foundation::MutexLock lock(m_mutex);
    const auto found = m_openedFolders.find(handle);
    if (found == m_openedFolders.end()) {
        throw ErrnoError(EBADF);
    }
    return found->second;
}

}  // namespace cloudfs::mount
