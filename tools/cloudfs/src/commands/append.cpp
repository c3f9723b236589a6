// SPDX-License-Identifier: Apache-2.0
#include "commands/append.hpp"

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

constexpr Options kAppend{Options::Access::WriteOnly, Options::ExistingContent::Preserve, Options::Presence::Optional,
                          Options::WriteMode::Append};

}  // namespace

void append(const Session& session, const AppendRequest& request) {
    const StorePath path(request.path);
    failIfMeansFolder(path);
    failIfStore(session, request.local);
    LocalSource source(request.local, LocalSource::Reading::Repeated);
    const auto provider = session.open(MissingStore::Create);
    failIfFolder(*provider, path);
    RepeatedEdit(source).run([&](ProgressBar& progress) {
        StoreFileWriter writer(*provider, path, kAppend);
        const auto appended = writeRest(source, writer, progress);
        writer.store(progress);
        // A stream that wrote nothing leaves an absent file absent.
        if (appended == 0 && !provider->fileExists(path.iri())) {
            provider->createFile(path.iri());
        }
    });
}

}  // namespace cloudfs::commands
