// SPDX-License-Identifier: Apache-2.0
#include "commands/localOperands.hpp"

#include "local/LocalSource.hpp"
#include "store/StoreFileWriter.hpp"
#include "terminal/ProgressBar.hpp"

#include <vector>

namespace cloudfs::commands {

namespace {

// Between two chunks an interrupt is noticed.
constexpr std::size_t kChunkSize = 256 * 1024;

}  // namespace

LocalStoreFiles filesOf(const Session& session) {
    return session.url.isBucket() ? LocalStoreFiles() : LocalStoreFiles(session.url.file);
}

void failIfStore(const Session& session, const std::string& local) {
    if (local != kStandardStream) {
        filesOf(session).failIfContain(local);
    }
}

std::uint64_t writeRest(LocalSource& source, StoreFileWriter& writer, ProgressBar& progress) {
    std::vector<char> buffer(kChunkSize);
    std::uint64_t total = 0;
    while (const auto count = source.read(buffer.data(), buffer.size())) {
        writer.write({buffer.data(), count});
        progress.advance(count);
        total += count;
    }
    return total;
}

}  // namespace cloudfs::commands
