// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mount/Inodes.hpp"
#include "mount/Listings.hpp"
#include "mount/OpenFile.hpp"
#include "mount/OpenFiles.hpp"

#include <foundation/threads/Mutex.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace cloudfs::mount {

/// Of a name, in bytes, as of any local file system (NAME_MAX).
inline constexpr std::size_t kLongestName = 255;

/// A file or folder as programs see it. A plain value.
struct Attributes {
    NodeId node = 0;
    std::uint64_t shown = 0;  ///< the inode number
    bool isFolder = false;
    bool isLinked = true;
    std::uint64_t size = 0;
    std::chrono::system_clock::time_point modified;
};

/// Names an open file or folder to the kernel.
using HandleId = std::uint64_t;

/// What a program got that opened a file.
struct Opened {
    HandleId handle = 0;
    /// Whether what the kernel has of the file's bytes is what they are.
    bool keepsCache = false;
};

/// The files and folders of a store as a kernel asks for them: by nodes and names in place of paths, with descriptions
/// that stay valid when files are renamed and removed. Knows nothing of FUSE.
///
/// Errors   ErrnoError, Exception, ByteStreamFailure: see errnoOf.
/// Threads  any; the kernel sees to it that no two operations change a folder's names, or a file's size, at once.
class FileSystem {
public:
    /// remembered: for how long listings and attributes count.
    FileSystem(std::shared_ptr<storage::cloudprovider::ExtendedCloudClient> client,
               const std::shared_ptr<IProvider>& provider, std::chrono::nanoseconds remembered);

    /// The entry of a name, whose node gets a reference. ErrnoError ENOENT.
    Attributes lookup(NodeId parent, const std::string& name);
    void forget(NodeId node, std::uint64_t references) noexcept;

    Attributes attributes(NodeId id);

    /// Give a file a size. Nobody closes it when no handle is given: it is stored at once.
    void resize(NodeId node, std::optional<HandleId> handle, std::uint64_t size);

    /// Make a file, and open it; one that is there is opened unless it has to be a new one. Its node gets a reference.
    std::pair<Attributes, Opened> create(NodeId parent, const std::string& name, const OpenMode& mode, bool mustBeNew);
    Opened open(NodeId node, const OpenMode& mode);
    std::size_t read(HandleId handle, char* buffer, std::size_t size, std::uint64_t offset);
    void write(HandleId handle, std::string_view data, std::uint64_t offset);
    /// A description was closed in one process: what it wrote is stored.
    void flush(HandleId handle);
    void store(HandleId handle);
    void release(HandleId handle) noexcept;

    Attributes makeFolder(NodeId parent, const std::string& name);
    void removeFolder(NodeId parent, const std::string& name);
    void removeFile(NodeId parent, const std::string& name);
    void rename(NodeId fromParent, const std::string& fromName, NodeId toParent, const std::string& toName,
                bool mayReplace);

    HandleId openFolder(NodeId node);
    /// One entry of a folder that is open, by its place; nothing behind the last one. The first two are "." and "..".
    struct Listed {
        std::string name;
        bool isFolder = false;
        std::uint64_t shown = 0;
    };
    std::optional<Listed> listed(HandleId handle, std::uint64_t place);
    /// List the folder anew for who begins at its first entry again.
    void rewind(HandleId handle);
    /// The entry's attributes, with a reference more for its node; of "." and "..", and of what has gone, nothing.
    std::optional<Attributes> lookupListed(HandleId handle, std::uint64_t place);
    void releaseFolder(HandleId handle) noexcept;

    /// The files that have something that is not stored.
    std::vector<std::shared_ptr<OpenFile>> unsaved() const { return m_files.unsaved(); }
    /// Those that programs have open to write.
    std::vector<std::shared_ptr<OpenFile>> written() const { return m_files.written(); }

private:
    struct FileOpened {
        FileOpened(OpenFiles& files, NodeId node) : pin(files, node) {}

        OpenFiles::Pin pin;
        std::shared_ptr<FileHandle> handle;
    };
    struct FolderOpened {
        StorePath path;
        std::shared_ptr<const Listings::Folder> listing;
        std::vector<std::string> names;
        bool isFresh = true;
    };

    StorePath childOf(NodeId parent, const std::string& name) const;
    Attributes enter(const StorePath& path, const StoredEntry& entry);
    Attributes describe(NodeId id, const Node& node, const std::optional<StoredEntry>& entry);
    bool createObject(const StorePath& path);
    void noteChange(const StorePath& path);
    void setAsideIfConflicted(NodeId node, const OpenFile& file);
    std::shared_ptr<FileOpened> opened(HandleId handle) const;
    std::shared_ptr<FolderOpened> openedFolder(HandleId handle) const;
    void fill(FolderOpened& folder);
    bool copyInside(const std::string& from, const std::string& version, const std::string& to, bool mayReplace);

    const MountedStore m_store;
    Inodes m_inodes;
    OpenFiles m_files;

    mutable foundation::Mutex m_mutex;  // a leaf
    std::unordered_map<HandleId, std::shared_ptr<FileOpened>> m_opened CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::unordered_map<HandleId, std::shared_ptr<FolderOpened>> m_openedFolders CLOUDPROVIDER_GUARDED_BY(m_mutex);
    HandleId m_last CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
};

}  // namespace cloudfs::mount
