// SPDX-License-Identifier: Apache-2.0
#include "DistantClient.hpp"

#include "harness.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <istream>
#include <optional>
#include <ostream>
#include <thread>
#include <utility>

namespace bench {

using foundation::storage::provider::ExceptionContext;
using storage::cloudprovider::ExpectedObject;
using storage::cloudprovider::ListOptions;
using storage::cloudprovider::ObjectDescription;
using storage::cloudprovider::ObjectInfo;
using storage::cloudprovider::ObjectRange;
using storage::cloudprovider::PartInfo;
using storage::cloudprovider::ResourceInUseException;
using storage::cloudprovider::ResourceNotFoundException;
using storage::cloudprovider::UnknownErrorException;

namespace {

using Clock = std::chrono::steady_clock;

// Content consists of words that tell their own position.
using Word = std::uint64_t;
using Words = std::array<Word, kCallSize / sizeof(Word)>;

void refuseUnless(bool condition, const char* text) {
    if (!condition) {
        throw UnknownErrorException(ExceptionContext(text));
    }
}

void sendContent(std::ostream& sink, std::uint64_t position, std::uint64_t size) {
    Words words;
    auto skipped = position % sizeof(Word);
    position -= skipped;
    while (size != 0) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            words[i] = position + i * sizeof(Word);
        }
        const auto count = std::min<std::uint64_t>(size, kCallSize - skipped);
        sink.write(reinterpret_cast<const char*>(words.data()) + skipped, static_cast<std::streamsize>(count));
        size -= count;
        position += kCallSize;
        skipped = 0;
    }
}

void receive(std::istream& data, std::uint64_t size) {
    std::array<char, kCallSize> dropped;
    while (size != 0) {
        const auto count = std::min<std::uint64_t>(size, dropped.size());
        data.read(dropped.data(), static_cast<std::streamsize>(count));
        refuseUnless(static_cast<std::uint64_t>(data.gcount()) == count, "the data ends early");
        size -= count;
    }
}

std::uint64_t endOf(const ObjectDescription& object) {
    return object.Parts.empty() ? 0 : object.Parts.back().Offset + object.Parts.back().Size;
}

}  // namespace

// One request: counted when it begins, and over when its time is.
class DistantClient::Request {
public:
    Request(DistantClient& client, const char* kind, std::uint64_t bytes = 0) {
        const auto& distance = client.m_distance;
        m_end = Clock::now() + distance.latency;
        if (distance.bytesPerSecond != 0) {
            const std::chrono::duration<double> travel(static_cast<double>(bytes) /
                                                       static_cast<double>(distance.bytesPerSecond));
            m_end += std::chrono::duration_cast<Clock::duration>(travel);
        }
        const std::lock_guard lock(client.m_mutex);
        ++client.m_requests[kind];
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;
    ~Request() { std::this_thread::sleep_until(m_end); }

private:
    Clock::time_point m_end;
};

DistantClient::DistantClient(Distance distance) : m_distance(distance) {}

void DistantClient::makeObject(const std::string& key, std::uint64_t size, std::uint64_t partSize) {
    const std::lock_guard lock(m_mutex);
    std::vector<PartInfo> parts;
    for (std::uint64_t offset = 0; offset < size; offset += partSize) {
        parts.push_back({parts.size(), offset, std::min(partSize, size - offset), nextText("made-")});
    }
    replace(key, std::move(parts));
}

std::uint64_t DistantClient::sizeOf(const std::string& key) const {
    const std::lock_guard lock(m_mutex);
    const auto* const object = find(key);
    return object != nullptr ? endOf(*object) : 0;
}

DistantClient::Requests DistantClient::takeRequests() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_requests, {});
}

bool DistantClient::isContent(const char* bytes, std::size_t count, std::uint64_t position) {
    std::uint64_t differences = 0;
    for (std::size_t at = 0; at + sizeof(Word) <= count; at += sizeof(Word)) {
        Word word = 0;
        std::memcpy(&word, bytes + at, sizeof(Word));
        differences |= word ^ (position + at);
    }
    return differences == 0;
}

boost::optional<ObjectInfo> DistantClient::getObjectInfo(const std::string& key) {
    const Request request(*this, "describe");
    const std::lock_guard lock(m_mutex);
    const auto* const object = find(key);
    return object != nullptr ? boost::make_optional(ObjectInfo{key, endOf(*object), {}}) : boost::none;
}

void DistantClient::checkObjectName(const std::string& /*name*/) {}

std::vector<ObjectInfo> DistantClient::listObjects(const std::string& /*prefix*/, std::string& token,
                                                   const ListOptions& /*options*/) {
    const Request request(*this, "list");
    token.clear();
    return {};
}

void DistantClient::deleteObject(const std::string& key) {
    const Request request(*this, "delete");
    const std::lock_guard lock(m_mutex);
    m_objects.erase(key);
}

void DistantClient::getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) {
    const bool isWhole = first == 0 && last == 0;
    getRange(key, {}, {first, isWhole ? sizeOf(key) : last - first + 1, isWhole}, sink);
}

void DistantClient::putObject(const std::string& key, std::istream& data, std::uint64_t size) {
    putObjectOver(key, data, size, ExpectedObject::anything());
}

std::vector<PartInfo> DistantClient::getObjectParts(const std::string& key) {
    auto object = describeObject(key);
    return object && object->Parts.size() > 1 ? std::move(object->Parts) : std::vector<PartInfo>();
}

std::string DistantClient::startMultipartUpload(const std::string& /*key*/, const std::string& /*lastTag*/) {
    const Request request(*this, "start an upload");
    const std::lock_guard lock(m_mutex);
    auto id = nextText("upload-");
    m_uploads[id];
    return id;
}

std::string DistantClient::uploadPart(const std::string& /*key*/, const std::string& uploadId, const PartInfo& part,
                                      std::istream& data) {
    const Request request(*this, "upload a part", part.Size);
    receive(data, part.Size);
    const std::lock_guard lock(m_mutex);
    auto& sent = m_uploads.at(uploadId)[part.Index];
    sent = part;
    sent.Tag = nextText("sent-");
    return sent.Tag;
}

std::string DistantClient::copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) {
    return copyRange(key, uploadId, part, {});
}

void DistantClient::abortMultipartUpload(const std::string& /*key*/, const std::string& uploadId) {
    const Request request(*this, "abort an upload");
    const std::lock_guard lock(m_mutex);
    m_uploads.erase(uploadId);
}

void DistantClient::completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                            const std::vector<PartInfo>& parts) {
    completeUploadOver(key, uploadId, parts, ExpectedObject::anything());
}

std::optional<ObjectDescription> DistantClient::describeObject(const std::string& key) {
    const Request request(*this, "describe");
    const std::lock_guard lock(m_mutex);
    const auto* const object = find(key);
    return object != nullptr ? std::optional(*object) : std::nullopt;
}

void DistantClient::getRange(const std::string& key, const std::string& version, const ObjectRange& range,
                             std::ostream& sink) {
    const Request request(*this, "get a range", range.Size);
    {
        const std::lock_guard lock(m_mutex);
        refuseUnless(range.First + range.Size <= endOf(findVersion(key, version)), "the object has no such bytes");
    }
    sendContent(sink, range.First, range.Size);
}

std::string DistantClient::copyRange(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                     const std::string& version) {
    return copyRun(key, uploadId, {part}, version).front().Tag;
}

std::vector<PartInfo> DistantClient::copyRun(const std::string& key, const std::string& uploadId,
                                             const std::vector<PartInfo>& run, const std::string& version) {
    const Request request(*this, "copy a run");
    const std::lock_guard lock(m_mutex);
    const auto& last = run.back();
    refuseUnless(last.Offset + last.Size <= endOf(findVersion(key, version)), "the object has no such bytes");
    auto copied = run;
    auto& upload = m_uploads.at(uploadId);
    for (auto& part : copied) {
        part.Tag = nextText("copied-");
        upload[part.Index] = part;
    }
    return copied;
}

std::string DistantClient::putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                                         const ExpectedObject& expected) {
    const Request request(*this, "put", size);
    receive(data, size);
    const std::lock_guard lock(m_mutex);
    refuseUnlessMet(key, expected);
    return replace(key, {{0, 0, size, nextText("put-")}});
}

std::string DistantClient::completeUploadOver(const std::string& key, const std::string& uploadId,
                                              const std::vector<PartInfo>& parts, const ExpectedObject& expected) {
    const Request request(*this, "complete an upload");
    const std::lock_guard lock(m_mutex);
    refuseUnlessMet(key, expected);
    const auto& upload = m_uploads.at(uploadId);
    std::vector<PartInfo> layout;
    for (const auto& part : parts) {
        const auto& sent = upload.at(part.Index);
        refuseUnless(sent.Size == part.Size && sent.Tag == part.Tag, "a part is not as it was sent");
        const auto offset = layout.empty() ? 0 : layout.back().Offset + layout.back().Size;
        layout.push_back({layout.size(), offset, part.Size, part.Tag});
    }
    m_uploads.erase(uploadId);
    return replace(key, std::move(layout));
}

std::string DistantClient::nextText(const char* prefix) {
    return prefix + std::to_string(++m_lastText);
}

const DistantClient::Object* DistantClient::find(const std::string& key) const {
    const auto object = m_objects.find(key);
    return object != m_objects.end() ? &object->second : nullptr;
}

const DistantClient::Object& DistantClient::findVersion(const std::string& key, const std::string& version) const {
    const auto* const object = find(key);
    if (object == nullptr && version.empty()) {
        throw ResourceNotFoundException();
    }
    if (object == nullptr || (!version.empty() && object->Version != version)) {
        throw ResourceInUseException();
    }
    return *object;
}

void DistantClient::refuseUnlessMet(const std::string& key, const ExpectedObject& expected) const {
    const auto* const object = find(key);
    if (!expected.isMetBy(object != nullptr ? std::optional(object->Version) : std::nullopt)) {
        throw ResourceInUseException();
    }
}

std::string DistantClient::replace(const std::string& key, std::vector<PartInfo> parts) {
    auto& object = m_objects[key];
    object = {nextText("version-"), std::move(parts)};
    return object.Version;
}

}  // namespace bench
