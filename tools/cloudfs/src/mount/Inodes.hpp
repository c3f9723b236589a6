// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/threads/Mutex.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace cloudfs::mount {

/// Names a file or folder to the kernel for as long as that knows it. Never used again for another one.
using NodeId = std::uint64_t;

/// The root of the mount.
inline constexpr NodeId kRootNode = 1;

/// What is known of a node. A plain value.
struct Node {
    StorePath path;
    bool isFolder = false;
    bool isLinked = true;     ///< it still has its path
    std::uint64_t shown = 0;  ///< the inode number that programs see
    /// When a folder was changed from here last, at first when the mount began.
    std::chrono::system_clock::time_point changed;
};

/// Which paths the nodes have that the kernel knows, and how many references hold each of them.
///
/// The number that programs see follows from the path a node got first, so that it stays from mount to mount; a node
/// that is renamed keeps it, and no two nodes have the same one at a time.
///
/// Threads  any.
class Inodes {
public:
    Inodes();

    /// The node of a path, made where there is none, with one reference more. A node of the other kind leaves the path.
    NodeId enter(const StorePath& path, bool isFolder);

    /// Add references, or take some back; a node without any is forgotten.
    void retain(NodeId id);
    void release(NodeId id, std::uint64_t count) noexcept;

    /// What is known of a node. Errors: ErrnoError ESTALE for one that is not known.
    Node get(NodeId id) const;

    /// The node that has a path, where there is one.
    std::optional<NodeId> find(const StorePath& path) const;

    /// Have a node leave its path.
    void unlink(NodeId id);

    /// Give a node another path; one that has it leaves it.
    void move(NodeId id, const StorePath& path);

    /// Say that what a folder holds was changed now.
    void touch(const StorePath& folder);

    /// The size of a file that the kernel was told last. Nothing while it was told none.
    void tell(NodeId id, std::uint64_t size);
    std::optional<std::uint64_t> toldSize(NodeId id) const;

    /// The number that is shown for a path, with no node made.
    std::uint64_t shownNumber(const StorePath& path) const;

private:
    struct Entry {
        Node node;
        std::uint64_t references = 0;
        std::optional<std::uint64_t> toldSize;
    };

    void unlinkLocked(Entry& entry) CLOUDPROVIDER_REQUIRES(m_mutex);
    std::uint64_t freeNumberLocked(const std::string& path) const CLOUDPROVIDER_REQUIRES(m_mutex);

    const std::chrono::system_clock::time_point m_begun = std::chrono::system_clock::now();

    mutable foundation::Mutex m_mutex;  // a leaf
    std::unordered_map<NodeId, Entry> m_nodes CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::unordered_map<std::string, NodeId> m_byPath CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::unordered_set<std::uint64_t> m_shown CLOUDPROVIDER_GUARDED_BY(m_mutex);
    NodeId m_last CLOUDPROVIDER_GUARDED_BY(m_mutex) = kRootNode;
};

}  // namespace cloudfs::mount
