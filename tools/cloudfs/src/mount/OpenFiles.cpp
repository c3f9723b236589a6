// SPDX-License-Identifier: Apache-2.0
#include "mount/OpenFiles.hpp"

#include <utility>

namespace cloudfs::mount {

OpenFiles::Pin::Pin(OpenFiles& files, NodeId node) : m_files(files), m_node(node), m_file(files.pin(node)) {}

OpenFiles::Pin::~Pin() {
    m_file.reset();
    m_files.unpin(m_node);
}

OpenFiles::OpenFiles(MountedStore store, Inodes& inodes) : m_store(std::move(store)), m_inodes(inodes) {}

std::shared_ptr<OpenFile> OpenFiles::find(NodeId node) const {
    const foundation::MutexLock lock(m_mutex);
    const auto found = m_files.find(node);
    return found != m_files.end() ? found->second.file : nullptr;
}

std::vector<std::shared_ptr<OpenFile>> OpenFiles::unsaved() const {
    return filesThat([](const OpenFile& file) { return file.isUnsaved(); });
}

std::vector<std::shared_ptr<OpenFile>> OpenFiles::written() const {
    return filesThat([](const OpenFile& file) { return file.isWritten(); });
}

template <typename Condition>
std::vector<std::shared_ptr<OpenFile>> OpenFiles::filesThat(Condition isMeant) const {
    std::vector<std::shared_ptr<OpenFile>> files;
    const foundation::MutexLock lock(m_mutex);
    for (const auto& [node, entry] : m_files) {
        if (isMeant(*entry.file)) {
            files.push_back(entry.file);
        }
    }
    return files;
}

std::shared_ptr<OpenFile> OpenFiles::pin(NodeId node) {
    const foundation::MutexLock lock(m_mutex);
    auto& entry = m_files[node];
    try {
        if (!entry.file) {
            const auto known = m_inodes.get(node);
            entry.file = std::make_shared<OpenFile>(m_store, known.path);
            m_inodes.retain(node);
        }
    } catch (...) {
        m_files.erase(node);
        throw;
    }
    ++entry.pins;
    return entry.file;
}

void OpenFiles::unpin(NodeId node) noexcept {
    std::shared_ptr<OpenFile> gone;  // let go of outside the lock: that may close a stream
    {
        const foundation::MutexLock lock(m_mutex);
        const auto found = m_files.find(node);
        auto& entry = found->second;
        --entry.pins;
        if (entry.pins != 0 || !entry.file->isIdle()) {
            return;
        }
        gone = std::move(entry.file);
        m_files.erase(found);
    }
    m_inodes.release(node, 1);
}

}  // namespace cloudfs::mount
