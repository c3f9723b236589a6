// SPDX-License-Identifier: Apache-2.0
#include "commands/du.hpp"

#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "terminal/JsonList.hpp"
#include "terminal/StandardOutput.hpp"

#include <foundation/services/InterruptState.hpp>
#include <foundation/services/Text.hpp>

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::FolderEntry;

namespace {

struct Usage {
    std::uint64_t bytes = 0;
    std::uint64_t files = 0;

    void add(const Usage& other) {
        bytes += other.bytes;
        files += other.files;
    }
};

struct FolderUsage {
    Usage total;
    std::map<std::string, Usage> folders;  // directly below, by name
};

void count(FolderUsage& usage, const FolderEntry& entry) {
    Usage own;
    if (entry.isFile()) {
        own = {entry.getFileAttributes().getSize().value_or(0), 1};
    }
    const auto name = foundation::toUtf8Lossy(entry.getName());
    const auto slash = name.find('/');
    if (entry.isFolder() || slash != std::string::npos) {
        usage.folders[name.substr(0, slash)].add(own);
    }
    usage.total.add(own);
}

// Nothing when there is a file instead. An empty store has a root all the same.
std::optional<FolderUsage> usageOfFolder(const IProvider& provider, const StorePath& path) {
    FolderUsage usage;
    try {
        const auto entries = provider.listAllRecursive(path.iri());
        while (entries->hasNext()) {
            foundation::utInterruptState::ThrowIfInterruptPending();
            entries->next();
            count(usage, entries->get());
        }
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::NotFound) {
            throw;
        }
        if (path.isRoot()) {
            return usage;
        }
        if (isFile(provider, path)) {
            return std::nullopt;
        }
        throw;
    }
    return usage;
}

std::string column(const std::string& text, std::size_t width) {
    return std::string(width - std::min(text.size(), width), ' ') + text + "  ";
}

// Shows what is used, as lines or as JSON.
class Report {
public:
    explicit Report(const DuRequest& request) : m_request(request) {}

    void addFile(const StorePath& path, std::uint64_t bytes) { add(path.text(), "file", path.text(), {bytes, 1}); }

    void addFolder(const StorePath& path, const Usage& usage) {
        add(path.text(), "folder", path.isRoot() ? path.text() : path.text() + '/', usage);
    }

    void end() {
        if (m_request.isJson) {
            m_list.end();
        }
        m_output.flush();
    }

private:
    void add(const std::string& path, const char* kind, const std::string& shownPath, const Usage& usage) {
        if (m_request.isJson) {
            m_list.add({{"path", path}, {"kind", kind}, {"size", usage.bytes}, {"files", usage.files}});
            return;
        }
        constexpr std::size_t kSizeWidth = 14;
        constexpr std::size_t kShortSizeWidth = 6;
        constexpr std::size_t kFilesWidth = 9;
        const auto sizeWidth = m_request.sizeStyle == SizeStyle::Short ? kShortSizeWidth : kSizeWidth;
        m_output.write(column(formatSize(usage.bytes, m_request.sizeStyle), sizeWidth) +
                       column(std::to_string(usage.files), kFilesWidth));
        m_output.writeName(shownPath);
        m_output.write("\n");
    }

    const DuRequest& m_request;
    StandardOutput m_output;
    JsonList m_list{m_output};
};

}  // namespace

void du(const Session& session, const DuRequest& request) {
    const StorePath path(request.path);
    const auto provider = session.open(MissingStore::Refuse);
    Report report(request);
    if (const auto usage = usageOfFolder(*provider, path)) {
        for (const auto& [name, ofFolder] : usage->folders) {
            report.addFolder(path.child(name), ofFolder);
        }
        report.addFolder(path, usage->total);
    } else {
        report.addFile(path, sizeOf(*provider, path).value_or(0));
    }
    report.end();
}

}  // namespace cloudfs::commands
