// SPDX-License-Identifier: Apache-2.0
#include "commands/compact.hpp"

#include "terminal/ProgressBar.hpp"
#include "terminal/StandardOutput.hpp"
#include "terminal/formatting.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace cloudfs::commands {

void compact(const Session& session, const CompactRequest& /*request*/) {
    const std::string& file = session.embeddedFile("compacted");
    ProgressBar progress(std::nullopt);
    const auto onBytes = [&](std::uint64_t bytes) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        progress.advance(bytes);
    };
    const auto bytes = session.namingStore([&] { return storage::cloudprovider::compactSqliteStore(file, onBytes); });
    StandardOutput output;
    output.write("gave back " + formatSize(bytes) + '\n');
    output.flush();
}

}  // namespace cloudfs::commands
