// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/testing/FakeCloudClient.hpp>

#include <storage/cloudprovider/CloudException.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <istream>
#include <ostream>
#include <stdexcept>
#include <utility>

namespace storage::cloudprovider::test {

namespace {

bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

std::string toText(const ExpectedObject& expected) {
    return expected.isAnything() ? "anything" : expected.isAbsent() ? "absent" : expected.getVersion();
}

bool holds(const std::string& bytes, std::uint64_t first, std::uint64_t size) {
    return size > 0 && first < bytes.size() && size <= bytes.size() - first;
}

}  // namespace

FakeCloudClient::FakeCloudClient() : FakeCloudClient(Options()) {}
FakeCloudClient::FakeCloudClient(Options options) : m_options(std::move(options)) {}
FakeCloudClient::~FakeCloudClient() = default;

void FakeCloudClient::store(const std::string& key, std::string bytes) {
    const std::lock_guard lock(m_mutex);
    put(key, std::move(bytes), {});
}

void FakeCloudClient::storeParts(const std::string& key, std::string bytes,
                                 const std::vector<std::uint64_t>& partSizes) {
    const std::lock_guard lock(m_mutex);
    std::vector<PartInfo> parts;
    std::uint64_t offset = 0;
    for (const auto size : partSizes) {
        parts.push_back({parts.size(), offset, size, newName("tag")});
        offset += size;
    }
    if (offset != bytes.size()) {
        throw std::invalid_argument("the parts' sizes do not add up to the object's");
    }
    put(key, std::move(bytes), std::move(parts));
}

void FakeCloudClient::reportParts(const std::string& key, std::vector<PartInfo> parts) {
    const std::lock_guard lock(m_mutex);
    m_objects.at(key).parts = std::move(parts);
}

std::optional<std::string> FakeCloudClient::content(const std::string& key) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_objects.find(key);
    return found == m_objects.end() ? std::nullopt : std::optional(*found->second.bytes);
}

std::optional<std::string> FakeCloudClient::version(const std::string& key) const {
    const std::lock_guard lock(m_mutex);
    return findVersion(key);
}

std::optional<std::string> FakeCloudClient::findVersion(const std::string& key) const {
    const auto found = m_objects.find(key);
    return found == m_objects.end() ? std::nullopt : std::optional(found->second.version);
}

std::vector<std::string> FakeCloudClient::keys() const {
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> result;
    for (const auto& [key, object] : m_objects) {
        result.push_back(key);
    }
    return result;
}

std::size_t FakeCloudClient::openUploads() const {
    const std::lock_guard lock(m_mutex);
    return m_uploads.size();
}

std::vector<std::string> FakeCloudClient::violations() const {
    const std::lock_guard lock(m_violationsMutex);
    return m_violations;
}

void FakeCloudClient::violate(const std::string& text) const {
    const std::lock_guard lock(m_violationsMutex);
    m_violations.push_back(text);
    throw std::logic_error(text);
}

void FakeCloudClient::require(bool condition, const std::string& text) const {
    if (!condition) {
        violate(text);
    }
}

void FakeCloudClient::requireKey(const std::string& key) const {
    require(!key.empty() && key.front() != '/', "bad key: '" + key + "'");
}

void FakeCloudClient::requireExpected(const std::string& key, const ExpectedObject& expected) const {
    const auto& version = expected.getVersion();
    const auto known = m_versions.find(version);
    require(version.empty() || (known != m_versions.end() && known->second == key),
            "'" + version + "' was never a version of " + key);
    if (!expected.isMetBy(findVersion(key))) {
        throw ResourceInUseException();
    }
}

// The object, if it has that version; an empty one: whatever is stored.
const FakeCloudClient::Object& FakeCloudClient::findObject(const std::string& key, const std::string& version) const {
    requireExpected(key, ExpectedObject::version(version));
    const auto found = m_objects.find(key);
    if (found == m_objects.end()) {
        throw ResourceNotFoundException();
    }
    return found->second;
}

boost::optional<ObjectInfo> FakeCloudClient::getObjectInfo(const std::string& key) {
    return perform({.operation = "getObjectInfo", .key = key}, [&]() -> boost::optional<ObjectInfo> {
        // Asking for the empty key is how a store with an object for its root would be found.
        require(key.empty() || key.front() != '/', "bad key: '" + key + "'");
        const std::lock_guard lock(m_mutex);
        const auto found = m_objects.find(key);
        if (found == m_objects.end()) {
            return boost::none;
        }
        return ObjectInfo{key, found->second.bytes->size(), found->second.lastModified};
    });
}

void FakeCloudClient::checkObjectName(const std::string& name) {
    perform({.operation = "checkObjectName", .key = name},
            [&] { require(!name.empty() && name.find('/') == std::string::npos, "bad name: '" + name + "'"); });
}

std::vector<ObjectInfo> FakeCloudClient::listObjects(const std::string& prefix, std::string& token,
                                                     const ListOptions& options) {
    return perform({.operation = "listObjects", .key = prefix, .detail = token, .options = options}, [&] {
        require(prefix.empty() || prefix.front() != '/', "bad prefix: '" + prefix + "'");
        require(options.MaxKeys == -1 || options.MaxKeys > 0, "bad MaxKeys");
        const std::lock_guard lock(m_mutex);
        Cursor cursor = takeCursor(prefix, token, options);
        token.clear();
        std::vector<ObjectInfo> page;
        if (cursor.isAtEnd) {
            return page;
        }
        if (m_options.emptyPages && !cursor.wasEmpty) {
            cursor.wasEmpty = true;
        } else {
            const auto limit = options.MaxKeys > 0 ? static_cast<std::size_t>(options.MaxKeys) : SIZE_MAX;
            page = collect(cursor, std::min(limit, m_options.pageSize));
            cursor.wasEmpty = false;
            Cursor ahead = cursor;
            cursor.isAtEnd = collect(ahead, 1).empty();
            if (cursor.isAtEnd && !m_options.emptyPages) {
                return page;
            }
        }
        token = keepCursor(std::move(cursor));
        return page;
    });
}

FakeCloudClient::Cursor FakeCloudClient::takeCursor(const std::string& prefix, const std::string& token,
                                                    const ListOptions& options) const {
    if (token.empty()) {
        return {prefix, options.Delimiter, {}, false, false, false};
    }
    const auto found = m_cursors.find(token);
    require(found != m_cursors.end(), "unknown token: '" + token + "'");
    require(found->second.prefix == prefix && found->second.delimiter == options.Delimiter,
            "a token of another listing");
    return found->second;
}

std::string FakeCloudClient::keepCursor(Cursor cursor) {
    auto token = newName("token");
    m_cursors[token] = std::move(cursor);
    return token;
}

// The next entries after the cursor, which moves past them.
std::vector<ObjectInfo> FakeCloudClient::collect(Cursor& cursor, std::size_t limit) const {
    std::vector<ObjectInfo> entries;
    const auto& prefix = cursor.prefix;
    auto at = cursor.after ? m_objects.upper_bound(*cursor.after) : m_objects.lower_bound(prefix);
    for (; at != m_objects.end() && startsWith(at->first, prefix) && entries.size() < limit; ++at) {
        if (cursor.isFolded && startsWith(at->first, *cursor.after)) {
            continue;
        }
        const auto mark =
            cursor.delimiter.empty() ? std::string::npos : at->first.find(cursor.delimiter, prefix.size());
        cursor.isFolded = mark != std::string::npos;
        if (cursor.isFolded) {
            cursor.after = at->first.substr(0, mark + cursor.delimiter.size());
            const bool isMarker = cursor.after == at->first;
            entries.push_back({*cursor.after, 0, isMarker ? at->second.lastModified : boost::posix_time::ptime()});
        } else {
            cursor.after = at->first;
            entries.push_back({at->first, at->second.bytes->size(), at->second.lastModified});
        }
    }
    return entries;
}

void FakeCloudClient::deleteObject(const std::string& key) {
    perform({.operation = "deleteObject", .key = key}, [&] {
        requireKey(key);
        const std::lock_guard lock(m_mutex);
        if (m_objects.erase(key) == 0) {
            throw ResourceNotFoundException();
        }
    });
}

void FakeCloudClient::getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) {
    perform({.operation = "getObject", .key = key, .first = first, .last = last}, [&] {
        requireKey(key);
        std::unique_lock lock(m_mutex);
        const auto found = m_objects.find(key);
        if (found == m_objects.end()) {
            throw ResourceNotFoundException();
        }
        const auto stored = found->second.bytes;
        lock.unlock();
        const bool isWhole = first == 0 && last == 0;
        require(isWhole || (first <= last && last < stored->size()), "range outside the object: " + key);
        deliver(isWhole ? *stored : stored->substr(first, last - first + 1), sink);
    });
}

void FakeCloudClient::getRange(const std::string& key, const std::string& version, const ObjectRange& range,
                               std::ostream& sink) {
    const auto last = range.First + range.Size - 1;
    perform({.operation = "getRange", .key = key, .first = range.First, .last = last, .version = version}, [&] {
        requireKey(key);
        std::unique_lock lock(m_mutex);
        const auto stored = findObject(key, version).bytes;
        lock.unlock();
        require(holds(*stored, range.First, range.Size), "range outside the object: " + key);
        require(!range.IsWhole || range.Size == stored->size(), "not the whole object: " + key);
        deliver(stored->substr(range.First, range.Size), sink);
    });
}

void FakeCloudClient::deliver(std::string bytes, std::ostream& sink) const {
    if (m_options.onDownload) {
        m_options.onDownload(bytes);
    }
    for (std::size_t at = 0; at < bytes.size(); at += m_options.transferChunkSize) {
        const auto size = std::min(m_options.transferChunkSize, bytes.size() - at);
        if (!sink.write(bytes.data() + at, static_cast<std::streamsize>(size))) {
            throw UnknownErrorException(
                foundation::storage::provider::ExceptionContext("the receiver takes no more bytes"));
        }
    }
}

// Takes the next size bytes; what lies after them stays in the stream.
std::string FakeCloudClient::receive(std::istream& data, std::uint64_t size) const {
    require(data.tellg() != std::istream::pos_type(-1), "the data cannot be sent again: not seekable");
    std::string bytes(size, '\0');
    data.read(bytes.data(), static_cast<std::streamsize>(size));
    require(static_cast<std::uint64_t>(data.gcount()) == size, "the data is shorter than its size");
    return bytes;
}

void FakeCloudClient::putObject(const std::string& key, std::istream& data, std::uint64_t size) {
    perform({.operation = "putObject", .key = key, .size = size},
            [&] { putExpected(key, data, size, ExpectedObject::anything()); });
}

std::string FakeCloudClient::putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                                           const ExpectedObject& expected) {
    return perform({.operation = "putObjectOver", .key = key, .size = size, .expected = toText(expected)},
                   [&] { return putExpected(key, data, size, expected); });
}

std::string FakeCloudClient::putExpected(const std::string& key, std::istream& data, std::uint64_t size,
                                         const ExpectedObject& expected) {
    requireKey(key);
    require(key.size() <= m_options.limits.LongestKey, "too long a key: " + key);
    require(size <= m_options.limits.LargestPut, "too large an object: " + key);
    require(size == 0 || key.back() != '/', "a folder marker with content: " + key);
    auto bytes = receive(data, size);
    const std::lock_guard lock(m_mutex);
    requireExpected(key, expected);
    return put(key, std::move(bytes), {});
}

std::vector<PartInfo> FakeCloudClient::getObjectParts(const std::string& key) {
    return perform({.operation = "getObjectParts", .key = key}, [&]() -> std::vector<PartInfo> {
        requireKey(key);
        const std::lock_guard lock(m_mutex);
        const auto found = m_objects.find(key);
        return found == m_objects.end() ? std::vector<PartInfo>() : found->second.parts;
    });
}

std::optional<ObjectDescription> FakeCloudClient::describeObject(const std::string& key) {
    return perform({.operation = "describeObject", .key = key}, [&] { return describe(key, 0, nullptr); });
}

std::optional<ObjectDescription> FakeCloudClient::describeWithStart(const std::string& key, std::uint64_t most,
                                                                    std::string& start) {
    require(start.empty(), "the start comes from the store: " + key);
    return perform({.operation = "describeWithStart", .key = key}, [&] { return describe(key, most, &start); });
}

std::optional<ObjectDescription> FakeCloudClient::describe(const std::string& key, std::uint64_t most,
                                                           std::string* start) const {
    requireKey(key);
    const std::lock_guard lock(m_mutex);
    const auto found = m_objects.find(key);
    if (found == m_objects.end()) {
        return std::nullopt;
    }
    const auto& object = found->second;
    if (start != nullptr) {
        *start = object.bytes->substr(0, most);
    }
    return ObjectDescription{
        object.version, object.parts.empty() ? std::vector<PartInfo>{{0, 0, object.bytes->size(), {}}} : object.parts};
}

std::string FakeCloudClient::startMultipartUpload(const std::string& key, const std::string& lastTag) {
    return perform({.operation = "startMultipartUpload", .key = key, .detail = lastTag}, [&] {
        requireKey(key);
        const std::lock_guard lock(m_mutex);
        auto id = newName("upload");
        m_uploads[id].key = key;
        return id;
    });
}

FakeCloudClient::Upload& FakeCloudClient::findUpload(const std::string& key, const std::string& uploadId) {
    requireKey(key);
    const auto found = m_uploads.find(uploadId);
    require(found != m_uploads.end() && found->second.key == key, "no upload '" + uploadId + "' of " + key);
    return found->second;
}

std::string FakeCloudClient::addPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                     std::string bytes) {
    auto& slot = findUpload(key, uploadId).parts[part.Index];
    slot = {std::move(bytes), newName("tag")};
    return slot.tag;
}

std::string FakeCloudClient::uploadPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                        std::istream& data) {
    return perform({.operation = "uploadPart", .key = key, .detail = uploadId, .part = part}, [&] {
        std::unique_lock lock(m_mutex);
        findUpload(key, uploadId);
        lock.unlock();
        require(part.Size > 0, "an empty part of " + key);
        require(part.Size <= m_options.limits.LargestPart, "too large a part of " + key);
        require(part.Index < m_options.limits.MostParts, "too many parts of " + key);
        auto bytes = receive(data, part.Size);
        require(data.peek() == std::istream::traits_type::eof(), "the data is longer than its part");
        lock.lock();
        return addPart(key, uploadId, part, std::move(bytes));
    });
}

std::string FakeCloudClient::copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) {
    return perform({.operation = "copyPart", .key = key, .detail = uploadId, .part = part},
                   [&] { return addCopiedParts(key, uploadId, {part}, {}).front().Tag; });
}

std::string FakeCloudClient::copyRange(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                       const std::string& version) {
    return perform({.operation = "copyRange", .key = key, .detail = uploadId, .part = part, .version = version},
                   [&] { return addCopiedParts(key, uploadId, {part}, version).front().Tag; });
}

std::vector<PartInfo> FakeCloudClient::copyRun(const std::string& key, const std::string& uploadId,
                                               const std::vector<PartInfo>& run, const std::string& version) {
    return perform({.operation = "copyRun", .key = key, .detail = uploadId, .parts = run, .version = version}, [&] {
        require(!run.empty(), "an empty run of " + key);
        for (std::size_t at = 1; at < run.size(); ++at) {
            const auto& previous = run[at - 1];
            require(run[at].Index == previous.Index + 1 && run[at].Offset == previous.Offset + previous.Size,
                    "no neighbours in a run of " + key);
        }
        return addCopiedParts(key, uploadId, run, version);
    });
}

std::vector<PartInfo> FakeCloudClient::addCopiedParts(const std::string& key, const std::string& uploadId,
                                                      std::vector<PartInfo> parts, const std::string& version) {
    const std::lock_guard lock(m_mutex);
    findUpload(key, uploadId);
    requireExpected(key, ExpectedObject::version(version));
    const auto found = m_objects.find(key);
    require(found != m_objects.end(), "no object to copy a part from: " + key);
    const auto& bytes = *found->second.bytes;
    const auto& stored = found->second.parts;
    for (const auto& part : parts) {
        require(holds(bytes, part.Offset, part.Size), "range outside the object: " + key);
        require(
            !version.empty() || part.Tag.empty() ||
                std::any_of(stored.begin(), stored.end(),
                            [&](const PartInfo& each) { return each.Tag == part.Tag && each.Offset == part.Offset; }),
            "the tag of no part that is stored: " + key);
    }
    for (auto& part : parts) {
        part.Tag = addPart(key, uploadId, part, bytes.substr(part.Offset, part.Size));
    }
    return parts;
}

void FakeCloudClient::abortMultipartUpload(const std::string& key, const std::string& uploadId) {
    perform({.operation = "abortMultipartUpload", .key = key, .detail = uploadId}, [&] {
        const std::lock_guard lock(m_mutex);
        findUpload(key, uploadId);
        m_uploads.erase(uploadId);
    });
}

void FakeCloudClient::checkParts(const Upload& upload, const std::vector<PartInfo>& parts) const {
    require(!parts.empty(), "no parts for " + upload.key);
    require(upload.parts.size() == parts.size(), "parts that are not listed of " + upload.key);
    std::uint64_t offset = 0;
    const PartInfo* previous = nullptr;
    for (const auto& part : parts) {
        const auto text = " of part " + std::to_string(part.Index) + " of " + upload.key;
        require(previous == nullptr || previous->Index < part.Index, "wrong order" + text);
        const auto sent = upload.parts.find(part.Index);
        require(sent != upload.parts.end(), "no data" + text);
        require(sent->second.tag == part.Tag, "wrong tag" + text);
        require(sent->second.bytes.size() == part.Size, "wrong size" + text);
        require(part.Offset == offset, "wrong offset" + text);
        offset += part.Size;
        previous = &part;
    }
}

void FakeCloudClient::completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                              const std::vector<PartInfo>& parts) {
    perform({.operation = "completeMultipartUpload", .key = key, .detail = uploadId, .parts = parts},
            [&] { completeExpected(key, uploadId, parts, ExpectedObject::anything()); });
}

std::string FakeCloudClient::completeUploadOver(const std::string& key, const std::string& uploadId,
                                                const std::vector<PartInfo>& parts, const ExpectedObject& expected) {
    return perform({.operation = "completeUploadOver",
                    .key = key,
                    .detail = uploadId,
                    .parts = parts,
                    .expected = toText(expected)},
                   [&] { return completeExpected(key, uploadId, parts, expected); });
}

std::string FakeCloudClient::completeExpected(const std::string& key, const std::string& uploadId,
                                              const std::vector<PartInfo>& parts, const ExpectedObject& expected) {
    const std::lock_guard lock(m_mutex);
    const auto& upload = findUpload(key, uploadId);
    checkParts(upload, parts);
    requireExpected(key, expected);
    std::string bytes;
    for (const auto& part : parts) {
        bytes += upload.parts.at(part.Index).bytes;
    }
    m_uploads.erase(uploadId);
    return put(key, std::move(bytes), parts);
}

bool FakeCloudClient::copyObject(const std::string& from, const std::string& fromVersion, const std::string& to,
                                 const ExpectedObject& expected) {
    return perform(
        {.operation = "copyObject", .key = from, .detail = to, .version = fromVersion, .expected = toText(expected)},
        [&] {
            requireKey(from);
            requireKey(to);
            require(from != to, "a copy onto itself: " + from);
            if (m_options.copiesInStore) {
                const std::lock_guard lock(m_mutex);
                const auto object = findObject(from, fromVersion);
                requireExpected(to, expected);
                put(to, *object.bytes, object.parts);
            }
            return m_options.copiesInStore;
        });
}

void FakeCloudClient::removeObject(const std::string& key, const std::string& version) {
    perform({.operation = "removeObject", .key = key, .version = version}, [&] {
        requireKey(key);
        const std::lock_guard lock(m_mutex);
        findObject(key, version);
        m_objects.erase(key);
    });
}

void FakeCloudClient::deleteObjects(const std::vector<std::string>& keys) {
    perform({.operation = "deleteObjects", .key = keys.empty() ? "" : keys.front(), .size = keys.size()}, [&] {
        require(!keys.empty() && keys.size() <= m_options.limits.DeletedAtOnce, "too many keys at once, or none");
        std::for_each(keys.begin(), keys.end(), [this](const std::string& key) { requireKey(key); });
        const std::lock_guard lock(m_mutex);
        for (const auto& key : keys) {
            m_objects.erase(key);
        }
    });
}

// Each object gets a version and a time of its own, a second or more later than the one before.
std::string FakeCloudClient::put(const std::string& key, std::string bytes, std::vector<PartInfo> parts) {
    static const boost::posix_time::ptime kStart(boost::gregorian::date(2020, 1, 1));
    auto version = newName("version");
    const auto time = kStart + boost::posix_time::seconds(static_cast<std::int64_t>(m_lastNumber));
    m_versions[version] = key;
    m_objects[key] = {version, std::make_shared<const std::string>(std::move(bytes)), time, std::move(parts)};
    return version;
}

std::string FakeCloudClient::newName(const std::string& kind) {
    // As long as those of real stores: copies of shorter ones need no memory, which would hide that they can fail.
    constexpr std::size_t kDigits = 32;
    const auto number = std::to_string(++m_lastNumber);
    return kind + '-' + std::string(kDigits - number.size(), '0') + number;
}

}  // namespace storage::cloudprovider::test
