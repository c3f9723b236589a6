// SPDX-License-Identifier: Apache-2.0
#include "commands/uploads.hpp"

#include "store/StorePath.hpp"
#include "terminal/StandardOutput.hpp"
#include "terminal/failures.hpp"
#include "terminal/formatting.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <charconv>
#include <vector>

namespace cloudfs {

using boost::posix_time::ptime;
using boost::posix_time::second_clock;
using boost::posix_time::time_duration;
using storage::cloudprovider::UnfinishedUpload;

namespace {

constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;

std::int64_t secondsOf(char unit) {
    switch (unit) {
        case 's':
            return 1;
        case 'm':
            return kMinute;
        case 'h':
            return kHour;
        case 'd':
            return kDay;
        default:
            return 0;
    }
}

time_duration parseAge(const std::string& text) {
    constexpr std::int64_t kMost = 100'000;
    std::int64_t number = -1;
    const auto* const end = text.data() + text.size();
    const auto [unit, error] = std::from_chars(text.data(), end, number);
    const auto seconds = unit + 1 == end ? secondsOf(*unit) : 0;
    if (error != std::errc() || number < 0 || number > kMost || seconds == 0) {
        throw UsageError("an age is a number of seconds, minutes, hours or days, such as 1d, not: " + text);
    }
    return boost::posix_time::seconds(number * seconds);
}

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

void showUploads(const Session& session, const UploadsRequest& request) {
    const auto latest =
        request.olderThan.empty() ? ptime() : second_clock::universal_time() - parseAge(request.olderThan);
    const auto key = storage::cloudprovider::utils::iriToKey(StorePath(request.path).iri());
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

}  // namespace cloudfs
