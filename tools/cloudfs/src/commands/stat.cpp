// SPDX-License-Identifier: Apache-2.0
#include "commands/stat.hpp"

#include "commands/entryText.hpp"
#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "store/patterns.hpp"
#include "terminal/StandardOutput.hpp"

namespace cloudfs::commands {

using foundation::storage::provider::FolderEntry;

namespace {

void writeStatus(StandardOutput& output, const StorePath& path, const FolderEntry& entry) {
    output.write("path: ");
    output.writeName(path.text());
    output.write(std::string("\nkind: ") + (entry.isFile() ? "file" : "folder"));
    output.write("\nsize: " + sizeText(entry, SizeStyle::Bytes) + "\ntime: " + timeText(entry) + "\n");
}

FolderEntry describeEntry(const IProvider& provider, const StorePath& path) {
    const auto iri = path.iri();
    if (isFile(provider, path)) {
        return {iri.getName(), provider.getFileAttributes(iri)};
    }
    return {iri.getName(), provider.getFolderAttributes(iri)};
}

}  // namespace

void stat(const Session& session, const StatRequest& request) {
    const auto paths = toPaths(request.paths);
    const auto provider = session.open(MissingStore::Refuse);
    StandardOutput output;
    JsonList list(output);
    for (const auto& path : expandPatterns(*provider, paths)) {
        const auto entry = describeEntry(*provider, path);
        if (request.isJson) {
            addEntry(list, "path", path.text(), entry);
        } else {
            writeStatus(output, path, entry);
        }
    }
    if (request.isJson) {
        list.end();
    }
    output.flush();
}

}  // namespace cloudfs::commands
