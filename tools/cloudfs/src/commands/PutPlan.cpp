// SPDX-License-Identifier: Apache-2.0
#include "commands/PutPlan.hpp"

#include "commands/localOperands.hpp"
#include "local/LocalSource.hpp"
#include "local/LocalTree.hpp"
#include "store/StoreFileWriter.hpp"

#include <numeric>

namespace cloudfs::commands {

void putFile(const foundation::storage::provider::IProvider& provider, const Upload& upload, ProgressBar& progress) {
    const auto source = upload.source ? upload.source : std::make_shared<LocalSource>(upload.from);
    StoreFileWriter writer(provider, upload.to);
    writeRest(*source, writer, progress);
    writer.store(progress);
}

// Folders come before what they hold.
void PutPlan::addTree(const std::vector<LocalEntry>& entries, const StorePath& root) {
    m_folders.push_back(root);
    std::string above;  // the name of the last folder, with "/", or empty: the root
    for (const auto& entry : entries) {
        if (!entry.isFolder) {
            m_files.push_back({entry.path, root.child(entry.name), entry.size});
            continue;
        }
        if (entry.name.starts_with(above)) {
            m_folders.pop_back();
        }
        m_folders.push_back(root.child(entry.name));
        above = entry.name + "/";
    }
}

std::uint64_t PutPlan::size() const {
    return std::accumulate(m_files.begin(), m_files.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const Upload& upload) { return sum + upload.size; });
}

}  // namespace cloudfs::commands
