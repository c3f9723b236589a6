// SPDX-License-Identifier: Apache-2.0
#include "upload/ObjectWriter.hpp"

#include "context/ObjectReplacedException.hpp"
#include "support/ScopeGuard.hpp"
#include "support/Trace.hpp"
#include "support/translateException.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/stream.hpp>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace storage::cloudprovider {

namespace {

namespace io = boost::iostreams;

// Compares the bytes that arrive with others.
class ComparingSink {
public:
    using char_type = char;
    using category = io::sink_tag;

    ComparingSink(std::string_view expected, std::uint64_t& sameBytes)
        : m_expected(expected), m_sameBytes(&sameBytes) {}

    std::streamsize write(const char* bytes, std::streamsize count) {
        const std::string_view arrived(bytes, static_cast<std::size_t>(count));
        if (m_isSame && m_expected.substr(*m_sameBytes, arrived.size()) == arrived) {
            *m_sameBytes += arrived.size();
        } else {
            m_isSame = false;
        }
        return count;
    }

private:
    std::string_view m_expected;
    std::uint64_t* m_sameBytes;
    bool m_isSame = true;
};

std::uint64_t sizeOf(const ObjectDescription& object) {
    return object.Parts.empty() ? 0 : object.Parts.back().Offset + object.Parts.back().Size;
}

}  // namespace

ObjectWriter::ObjectWriter(std::shared_ptr<OpenFileContext> context) : m_context(std::move(context)) {}

bool ObjectWriter::settle() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_settling);
    if (!m_unsettled) {
        return false;
    }
    const auto outcome = look(*m_unsettled);
    m_unsettled.reset();
    if (outcome == Outcome::Replaced) {
        throw ObjectReplacedException(m_context->key);
    }
    return true;
}

void ObjectWriter::put(const char* data, std::uint64_t size, Bytes bytes) {
    CLOUDPROVIDER_TRACE_FUNCTION(" size=", size);
    const auto expected = m_context->version.expected();
    const bool canLook = m_context->version.mayBeTold() && !expected.isAnything();
    Attempt attempt{{}, data, size, nullptr};
    if (canLook && bytes == Bytes::MayChange) {
        copyBytes(attempt);
    }
    std::string version;
    try {
        io::stream<io::array_source> stream(attempt.data, static_cast<std::size_t>(size));
        version = m_context->client->putObjectOver(m_context->key, stream, size, expected);
    } catch (const ResourceInUseException&) {
        traceCaughtException();
        if (canLook) {
            attempt.data = nullptr;  // refused bytes are not stored: equal ones in the store are somebody else's
            wasStored(std::move(attempt));
        }
        throw;
    } catch (...) {
        traceCaughtException();
        if (!canLook || !wasStored(std::move(attempt))) {
            throw;
        }
        return;
    }
    m_context->version.editOf(std::move(version));
}

// The upload is aborted before the store is asked, lest its completion takes effect after the answer.
void ObjectWriter::complete(MultipartUploadManager& upload, std::vector<PartInfo> records) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    Attempt attempt{std::move(records), nullptr, 0, nullptr};  // before anything can fail that has to be looked into
    std::string version;
    try {
        version = upload.complete(attempt.records, m_context->version.expected());
    } catch (...) {
        traceCaughtException();
        {
            const ScopeGuard cancel([&upload] { upload.cancel(); });
        }
        if (!m_context->version.mayBeTold() || !wasStored(std::move(attempt))) {
            throw;
        }
        return;
    }
    m_context->version.editOf(std::move(version));
}

// After a failure: whether the attempt took effect all the same. When the store does not tell, later attempts ask
// first.
bool ObjectWriter::wasStored(Attempt attempt) {
    Outcome outcome = Outcome::NotStored;
    try {
        outcome = look(attempt);
    } catch (...) {
        traceCaughtException();
        keepUnsettled(std::move(attempt));
    }
    if (outcome == Outcome::Replaced) {
        throw ObjectReplacedException(m_context->key);
    }
    return outcome == Outcome::Stored;
}

// What is expected comes first: where that still stands, nothing of ours has replaced it.
ObjectWriter::Outcome ObjectWriter::look(const Attempt& attempt) const {
    const auto stored = m_context->client->describeObject(m_context->key);
    const auto expected = m_context->version.expected();
    const auto version = stored ? std::optional(stored->Version) : std::nullopt;
    const bool cannotTell = version && version->empty();
    if (cannotTell || (!expected.isAnything() && expected.isMetBy(version))) {
        return Outcome::NotStored;
    }
    if (stored && isOurs(*stored, attempt)) {
        m_context->version.editOf(*version);
        return Outcome::Stored;
    }
    return expected.isAnything() ? Outcome::NotStored : Outcome::Replaced;
}

bool ObjectWriter::isOurs(const ObjectDescription& stored, const Attempt& attempt) const {
    if (attempt.records.empty()) {
        return hasBytes(stored, attempt);
    }
    return std::equal(stored.Parts.begin(), stored.Parts.end(), attempt.records.begin(), attempt.records.end(),
                      [](const PartInfo& left, const PartInfo& right) {
                          return left.Size == right.Size && !left.Tag.empty() && left.Tag == right.Tag;
                      });
}

bool ObjectWriter::hasBytes(const ObjectDescription& stored, const Attempt& attempt) const {
    if (attempt.data == nullptr || sizeOf(stored) != attempt.size) {
        return false;
    }
    std::uint64_t sameBytes = 0;
    if (attempt.size != 0) {
        io::stream<ComparingSink> sink(ComparingSink({attempt.data, attempt.size}, sameBytes));
        m_context->client->getRange(m_context->key, stored.Version, {0, attempt.size, true}, sink);
        sink.close();
    }
    return sameBytes == attempt.size;
}

// Without room for a copy of its bytes an attempt cannot be told from another writer's, and counts as that.
void ObjectWriter::keepUnsettled(Attempt attempt) noexcept {
    try {
        if (attempt.data != nullptr && !attempt.copy) {
            copyBytes(attempt);
        }
    } catch (...) {
        traceCaughtException();
        attempt.data = nullptr;
    }
    const foundation::MutexLock lock(m_settling);
    m_unsettled = std::move(attempt);
}

void ObjectWriter::copyBytes(Attempt& attempt) const {
    auto copy = m_context->bufferFactory->build(attempt.size);
    copy->open();
    copy->reserve(attempt.size);
    std::memcpy(copy->data(), attempt.data, attempt.size);
    attempt.data = copy->data();
    attempt.copy = std::move(copy);
}

}  // namespace storage::cloudprovider
