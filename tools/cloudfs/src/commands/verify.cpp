// SPDX-License-Identifier: Apache-2.0
#include "commands/verify.hpp"

#include "store/StorePath.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/StandardOutput.hpp"
#include "terminal/escapeText.hpp"
#include "terminal/failures.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include <cstdint>
#include <optional>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;

void verify(const Session& session, const VerifyRequest& request) {
    const std::string& file = session.embeddedFile("verified");
    const auto key = StorePath(request.path).key();
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
        throw Failure(ErrorCode::NotFound, request.path, "there is no such file or folder");
    }
}

}  // namespace cloudfs::commands
