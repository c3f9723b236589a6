// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mount/Inodes.hpp"
#include "mount/OpenFile.hpp"

#include <foundation/threads/Mutex.hpp>

#include <cstddef>
#include <map>
#include <memory>
#include <vector>

namespace cloudfs::mount {

/// The files of a mount that are open, or have something that is not stored. Their nodes are held. Threads: any.
class OpenFiles {
public:
    /// Keeps a file in the table as long as it lives.
    class Pin {
    public:
        Pin(OpenFiles& files, NodeId node);
        Pin(const Pin&) = delete;
        Pin& operator=(const Pin&) = delete;
        ~Pin();

        NodeId node() const noexcept { return m_node; }
        OpenFile& operator*() const noexcept { return *m_file; }
        OpenFile* operator->() const noexcept { return m_file.get(); }

    private:
        OpenFiles& m_files;
        const NodeId m_node;
        std::shared_ptr<OpenFile> m_file;
    };

    OpenFiles(MountedStore store, Inodes& inodes);

    /// The file of a node, where it is in the table.
    std::shared_ptr<OpenFile> find(NodeId node) const;

    /// All of them that have something that is not stored.
    std::vector<std::shared_ptr<OpenFile>> unsaved() const;

    /// All of them that programs have open to write.
    std::vector<std::shared_ptr<OpenFile>> written() const;

private:
    template <typename Condition>
    std::vector<std::shared_ptr<OpenFile>> filesThat(Condition isMeant) const;

    struct Entry {
        std::shared_ptr<OpenFile> file;
        std::size_t pins = 0;
    };

    std::shared_ptr<OpenFile> pin(NodeId node);
    void unpin(NodeId node) noexcept;

    const MountedStore m_store;
    Inodes& m_inodes;
    mutable foundation::Mutex m_mutex;  // no I/O under it; the leaves of files and nodes are behind it
    std::map<NodeId, Entry> m_files CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

}  // namespace cloudfs::mount
