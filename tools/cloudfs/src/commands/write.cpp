// SPDX-License-Identifier: Apache-2.0
#include "commands/write.hpp"

#include "commands/RepeatedEdit.hpp"
#include "commands/localOperands.hpp"
#include "local/LocalSource.hpp"
#include "store/StoreFileWriter.hpp"
#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "terminal/ProgressBar.hpp"

namespace cloudfs::commands {

namespace {

using Options = ByteStreamOpenOptions;

constexpr Options kOverwrite{Options::Access::WriteOnly, Options::ExistingContent::Preserve,
                             Options::Presence::Required, Options::WriteMode::Positioned};

}  // namespace

void write(const Session& session, const WriteRequest& request) {
    const StorePath path(request.path);
    failIfStore(session, request.local);
    LocalSource source(request.local, LocalSource::Reading::Repeated);
    const auto provider = session.open(MissingStore::Refuse);
    failIfFolder(*provider, path);
    RepeatedEdit(source).run([&](ProgressBar& progress) {
        StoreFileWriter writer(*provider, path, kOverwrite);
        writer.seek(request.offset);
        writeRest(source, writer, progress);
        writer.store(progress);
    });
}

}  // namespace cloudfs::commands
