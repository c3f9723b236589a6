// SPDX-License-Identifier: Apache-2.0
#include "commands/maintenance.hpp"

#include "store/StorePath.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/StandardOutput.hpp"
#include "terminal/escapeText.hpp"
#include "terminal/failures.hpp"
#include "terminal/formatting.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;

void verify(const Session& session, const std::string& path) {
    const std::string& file = session.embeddedFile("verified");
    const auto key = storage::cloudprovider::utils::iriToKey(StorePath(path).iri());
    StandardOutput output;
    ProgressBar progress(std::nullopt);
    const storage::cloudprovider::VerificationObserver observer{
        [&](std::uint64_t bytes) {
            foundation::utInterruptState::ThrowIfInterruptPending();
            progress.advance(bytes);
        },
        [&](const std::string& damagedKey, const std::string& cause) {
            output.writeName(damagedKey.empty() ? file : '/' + damagedKey);
            output.write(": " + escapeText(cause) + '\n');
            output.flush();
        }};
    const auto result =
        session.namingStore([&] { return storage::cloudprovider::verifySqliteStore(file, key, observer); });
    output.flush();
    if (result.Damages > 0) {
        throw Failure(ErrorCode::Unknown, session.url.name(),
                      "the store is damaged; found in " + std::to_string(result.Objects) +
                          " files and folders: " + std::to_string(result.Damages));
    }
    if (result.Objects == 0 && !key.empty()) {
        throw Failure(ErrorCode::NotFound, path, "there is no such file or folder");
    }
}

void compact(const Session& session) {
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

void upgrade(const Session& session) {
    const std::string& file = session.embeddedFile("upgraded");
    const bool isDone = session.namingStore([&] { return storage::cloudprovider::upgradeSqliteStore(file); });
    StandardOutput output;
    output.write(isDone ? "converted to format 2\n" : "has format 2 already\n");
    output.flush();
}

}  // namespace cloudfs
