// SPDX-License-Identifier: Apache-2.0
#include "mount/Inodes.hpp"

#include "mount/errnoOf.hpp"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace cloudfs::mount {

namespace {

// FNV-1a (RFC draft-eastlake-fnv): the same in every run, which std::hash need not be.
std::uint64_t numberOf(const std::string& path) {
    constexpr std::uint64_t kBasis = 0xcbf29ce484222325;
    constexpr std::uint64_t kPrime = 0x100000001b3;
    auto number = kBasis;
    for (const char character : path) {
        number = (number ^ static_cast<unsigned char>(character)) * kPrime;
    }
    return number;
}

}  // namespace

Inodes::Inodes() {
    const StorePath root("/");
    m_nodes.emplace(kRootNode, Entry{{root, true, true, kRootNode, m_begun}, 1, std::nullopt});
    m_byPath.emplace(root.text(), kRootNode);
    m_shown.insert(kRootNode);
}

NodeId Inodes::enter(const StorePath& path, bool isFolder) {
    const foundation::MutexLock lock(m_mutex);
    if (const auto known = m_byPath.find(path.text()); known != m_byPath.end()) {
        auto& entry = m_nodes.at(known->second);
        if (entry.node.isFolder == isFolder) {
            ++entry.references;
            return known->second;
        }
        unlinkLocked(entry);
    }
    const auto shown = freeNumberLocked(path.text());
    m_shown.insert(shown);
    const auto id = ++m_last;
    m_nodes.emplace(id, Entry{{path, isFolder, true, shown, m_begun}, 1, std::nullopt});
    m_byPath[path.text()] = id;
    return id;
}

void Inodes::retain(NodeId id) {
    const foundation::MutexLock lock(m_mutex);
    if (const auto found = m_nodes.find(id); found != m_nodes.end()) {
        ++found->second.references;
    }
}

void Inodes::release(NodeId id, std::uint64_t count) noexcept {
    const foundation::MutexLock lock(m_mutex);
    const auto found = m_nodes.find(id);
    if (found == m_nodes.end() || id == kRootNode) {
        return;
    }
    auto& entry = found->second;
    entry.references -= std::min(count, entry.references);
    if (entry.references == 0) {
        unlinkLocked(entry);
        m_shown.erase(entry.node.shown);
        m_nodes.erase(found);
    }
}

Node Inodes::get(NodeId id) const {
    const foundation::MutexLock lock(m_mutex);
    const auto found = m_nodes.find(id);
    if (found == m_nodes.end()) {
        throw ErrnoError(ESTALE);
    }
    return found->second.node;
}

std::optional<NodeId> Inodes::find(const StorePath& path) const {
    const foundation::MutexLock lock(m_mutex);
    const auto known = m_byPath.find(path.text());
    return known != m_byPath.end() ? std::optional(known->second) : std::nullopt;
}

void Inodes::unlink(NodeId id) {
    const foundation::MutexLock lock(m_mutex);
    if (const auto found = m_nodes.find(id); found != m_nodes.end()) {
        unlinkLocked(found->second);
    }
}

void Inodes::move(NodeId id, const StorePath& path) {
    const foundation::MutexLock lock(m_mutex);
    const auto found = m_nodes.find(id);
    if (found == m_nodes.end()) {
        return;
    }
    unlinkLocked(found->second);
    if (const auto former = m_byPath.find(path.text()); former != m_byPath.end()) {
        unlinkLocked(m_nodes.at(former->second));
    }
    found->second.node.path = path;
    found->second.node.isLinked = true;
    m_byPath[path.text()] = id;
}

void Inodes::touch(const StorePath& folder) {
    const foundation::MutexLock lock(m_mutex);
    if (const auto known = m_byPath.find(folder.text()); known != m_byPath.end()) {
        m_nodes.at(known->second).node.changed = std::chrono::system_clock::now();
    }
}

void Inodes::tell(NodeId id, std::uint64_t size) {
    const foundation::MutexLock lock(m_mutex);
    if (const auto found = m_nodes.find(id); found != m_nodes.end()) {
        found->second.toldSize = size;
    }
}

std::optional<std::uint64_t> Inodes::toldSize(NodeId id) const {
    const foundation::MutexLock lock(m_mutex);
    const auto found = m_nodes.find(id);
    return found != m_nodes.end() ? found->second.toldSize : std::nullopt;
}

std::uint64_t Inodes::shownNumber(const StorePath& path) const {
    const foundation::MutexLock lock(m_mutex);
    const auto known = m_byPath.find(path.text());
    return known != m_byPath.end() ? m_nodes.at(known->second).node.shown : freeNumberLocked(path.text());
}

void Inodes::unlinkLocked(Entry& entry) {
    if (std::exchange(entry.node.isLinked, false)) {
        m_byPath.erase(entry.node.path.text());
    }
}

// 0 is no number, and programs take 1 for the root.
std::uint64_t Inodes::freeNumberLocked(const std::string& path) const {
    auto number = numberOf(path);
    while (number <= kRootNode || m_shown.count(number) != 0) {
        ++number;
    }
    return number;
}

}  // namespace cloudfs::mount
