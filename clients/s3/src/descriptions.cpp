// SPDX-License-Identifier: Apache-2.0
#include "descriptions.hpp"

#include "objects.hpp"
#include "text.hpp"
#include "uploads.hpp"

#include <algorithm>
#include <utility>

namespace storage::cloudprovider::s3 {

namespace {

constexpr std::uint64_t kMebibyte = 1024 * 1024;
// Of the 10,000 that an upload may have: the rest is left for what is written past the object's end.
constexpr std::uint64_t kMostDescribedParts = 9'000;

std::uint64_t divideUp(std::uint64_t value, std::uint64_t divisor) {
    return value / divisor + (value % divisor == 0 ? 0 : 1);
}

struct NoStart {};

// Takes the first bytes of an object, of which there may be many more where the store does not give ranges.
class StartSink : public BodySink {
public:
    StartSink(std::string& start, std::uint64_t most) : m_start(start), m_most(most) {}

    void begin(const HttpResponse& response) override {
        m_start.clear();
        const auto size = readHead(response).Size;
        const bool isWhole = response.Status == 200;
        const bool isFromStart = isWhole || response.header("content-range").starts_with("bytes 0-");
        if (!isFromStart || toNumber(response.header("content-length")) != std::min(size, m_most)) {
            throw NoStart();
        }
    }
    void write(std::string_view bytes) override { m_start += bytes; }

private:
    std::string& m_start;
    const std::uint64_t m_most;
};

}  // namespace

std::vector<PartInfo> uniformParts(std::uint64_t size, std::uint64_t smallestPart, const std::string& tag) {
    const auto fitting = divideUp(divideUp(size, kMostDescribedParts), kMebibyte) * kMebibyte;
    const auto partSize =
        std::min(std::max(smallestPart, size > smallestPart * kMostDescribedParts ? fitting : 0), kLargestPart);
    std::vector<PartInfo> parts;
    std::uint64_t offset = 0;
    do {
        parts.push_back({parts.size(), offset, std::min(partSize, size - offset), tag});
        offset += parts.back().Size;
    } while (offset < size);
    return parts;
}

ObjectDescription describe(Bucket& bucket, const std::string& key, const ObjectHead& head) {
    const auto completion = bucket.memory().unsettledCompletion(key);
    if (completion && head.Attributes.isLastWrite(completion->WriteId)) {
        return {head.Version, completion->Records};
    }
    const auto tag = head.Version.empty() ? std::string() : makeTag({}, head.Version);
    return {head.Version, uniformParts(head.Size, bucket.options().PartSize, tag)};
}

std::optional<ObjectHead> headWithStart(Bucket& bucket, const std::string& key, std::uint64_t most,
                                        std::string& start) {
    StartSink sink(start, most);
    auto question = bucket.request("GET", key);
    question.Headers = {{"Range", "bytes=0-" + std::to_string(most - 1)}};
    question.Sink = &sink;
    try {
        return bucket.look(key, std::move(question));
    } catch (const NoStart&) {
        start.clear();
    } catch (const S3Failure& failure) {
        start.clear();
        if (!failure.hasStatus(416)) {
            throw;
        }
    }
    return bucket.head(key);
}

}  // namespace storage::cloudprovider::s3
