// SPDX-License-Identifier: Apache-2.0
#include "commands/uploads.hpp"

#include "store/StorePath.hpp"
#include "terminal/StandardOutput.hpp"
#include "terminal/formatting.hpp"

#include <foundation/services/InterruptState.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>

namespace cloudfs::commands {

using boost::posix_time::ptime;
using boost::posix_time::second_clock;
using storage::cloudprovider::UnfinishedUpload;

namespace {

// One of unknown age counts as new: somebody may be at work on it. The store's clock may be ahead of ours.
bool isOld(const UnfinishedUpload& upload, const ptime& latest) {
    return latest.is_special() || (!upload.Started.is_special() && upload.Started <= latest);
}

// Of the file that the path names, or of one below it.
bool isMeant(const UnfinishedUpload& upload, const std::string& key) {
    return key.empty() || upload.Key == key || upload.Key.compare(0, key.size() + 1, key + '/') == 0;
}

void writeUpload(StandardOutput& output, const UnfinishedUpload& upload) {
    constexpr std::size_t kSizeWidth = 10;
    const auto size = formatSize(upload.Size);
    output.write(std::string(kSizeWidth - std::min(size.size(), kSizeWidth), ' ') + size + "  " +
                 formatTime(upload.Started) + "  ");
    output.writeName('/' + upload.Key);
    output.write("\n");
}

}  // namespace

void uploads(const Session& session, const UploadsRequest& request) {
    const auto latest = request.olderThan
                            ? second_clock::universal_time() - boost::posix_time::seconds(request.olderThan->count())
                            : ptime();
    const auto key = StorePath(request.path).key();
    const auto client = session.openClient(MissingStore::Refuse);
    StandardOutput output;
    std::string token;
    do {
        foundation::utInterruptState::ThrowIfInterruptPending();
        const auto page = session.namingStore([&] { return client->listUploads(key, token); });
        for (const auto& upload : page) {
            if (!isMeant(upload, key) || !isOld(upload, latest)) {
                continue;
            }
            if (request.isAborting) {
                session.namingStore([&] { client->abortMultipartUpload(upload.Key, upload.UploadId); });
            }
            writeUpload(output, upload);
        }
    } while (!token.empty());
    output.flush();
}

}  // namespace cloudfs::commands
