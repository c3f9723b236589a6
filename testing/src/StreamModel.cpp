// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/testing/StreamModel.hpp>

#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/detachStream.hpp>
#include <storage/cloudprovider/resizeStream.hpp>
#include <storage/cloudprovider/storeStream.hpp>
#include <storage/cloudprovider/testing/stored.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::StorageIRI;

StreamModel::StreamModel(std::uint64_t seed, const Shape& shape, StorageIRI file, std::string key,
                         foundation::storage::provider::IProvider& provider, CloudClient& store)
    : m_shape(shape),
      m_file(std::move(file)),
      m_key(std::move(key)),
      m_provider(provider),
      m_store(store),
      m_random(seed) {
    storeSomething();
}

void StreamModel::step() {
    const auto choice = pick(0, 99);
    if (m_streams.empty() || (choice < 8 && m_streams.size() < 4)) {
        open();
    } else if (choice < 83) {
        use(anyStream(), choice);
    } else if (choice < 88) {
        store(anyStream());
    } else if (choice < 90) {
        abandon(anyStream());
    } else if (choice < 92 && m_shape.tellsVersions) {
        letAnotherWriterIn();
    } else if (choice < 93 && m_shape.tellsVersions) {
        detach(anyStream());
    } else {
        close(anyStream());
    }
}

void StreamModel::finish() {
    while (!m_streams.empty() && !testing::Test::HasFailure()) {
        close(m_streams.front());
    }
}

std::uint64_t StreamModel::pick(std::uint64_t least, std::uint64_t most) {
    return std::uniform_int_distribution<std::uint64_t>(least, most)(m_random);
}

std::string StreamModel::randomBytes(std::uint64_t count) {
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<char>(pick(1, 255)); });
    return bytes;
}

// Lengths and positions crowd around the borders of parts.
std::uint64_t StreamModel::pickAroundBorders(std::uint64_t mostParts) {
    const auto border = pick(0, mostParts) * m_shape.partSize;
    const auto jitter = pick(0, 4);
    return pick(0, 2) == 0 ? pick(0, mostParts * m_shape.partSize)
                           : border + jitter - std::min<std::uint64_t>(border, 2);
}

StreamModel::Handle& StreamModel::anyStream() {
    return m_streams[pick(0, m_streams.size() - 1)];
}

void StreamModel::storeSomething() {
    const auto kind = pick(0, 2);
    if (kind == 0) {
        return;
    }
    m_stored = randomBytes(pickAroundBorders(m_shape.object));
    if (kind == 1 || !m_shape.storesOddParts || m_stored->empty()) {
        storeObject(m_store, m_key, *m_stored);
        return;
    }
    std::vector<std::uint64_t> sizes;
    for (auto left = m_stored->size(); left > 0; left -= sizes.back()) {
        sizes.push_back(std::min<std::uint64_t>(left, pick(1, 2 * m_shape.partSize)));
    }
    storeObject(m_store, m_key, *m_stored, sizes);
}

void StreamModel::open() {
    ByteStreamOpenOptions options;
    options.access = static_cast<ByteStreamOpenOptions::Access>(pick(0, 1));
    options.existingContent = static_cast<ByteStreamOpenOptions::ExistingContent>(pick(0, 3) == 0 ? 0 : 1);
    options.presence = static_cast<ByteStreamOpenOptions::Presence>(pick(0, 1));
    options.writeMode = static_cast<ByteStreamOpenOptions::WriteMode>(pick(0, 1));
    const bool isReadOnly = pick(0, 3) == 0;
    const bool isFirst = m_streams.empty();
    const bool mustExist = isReadOnly || options.presence == ByteStreamOpenOptions::Presence::Required;
    Handle handle;
    const auto failure = errorCodeOf([&] {
        handle.stream = isReadOnly ? m_provider.openReadOnlyStream(m_file) : m_provider.openStream(m_file, options);
    });
    if (isFirst && mustExist && !m_stored) {
        ASSERT_EQ(failure, ErrorCode::NotFound);
        return;
    }
    ASSERT_EQ(failure, std::nullopt);
    if (isFirst) {
        const bool discards = !isReadOnly && options.existingContent == ByteStreamOpenOptions::ExistingContent::Discard;
        m_bytes = discards ? std::string() : m_stored.value_or(std::string());
        m_isChanged = discards;
        m_replacesAnything = discards;
        m_isCountedOn = false;
        handle.hasChanged = discards;
    }
    handle.appends = !isReadOnly && options.writeMode == ByteStreamOpenOptions::WriteMode::Append;
    handle.reads = isReadOnly || options.access == ByteStreamOpenOptions::Access::ReadWrite;
    handle.writes = !isReadOnly;
    m_streams.push_back(std::move(handle));
}

void StreamModel::use(Handle& handle, std::uint64_t choice) {
    if (choice < 36) {
        read(handle);
    } else if (choice < 62) {
        write(handle);
    } else if (choice < 71) {
        resize(handle);
    } else {
        seek(handle);
    }
}

void StreamModel::read(Handle& handle) {
    const auto count = pickAroundBorders(m_shape.transfer);
    std::string buffer(count, '?');
    if (!handle.reads) {
        ASSERT_EQ(errorCodeOf([&] { handle.stream->read(buffer.data(), 1); }), ErrorCode::PermissionDenied);
        return;
    }
    const auto result = handle.stream->read(buffer.data(), static_cast<std::int64_t>(count));
    std::string expected;
    if (!handle.isAtEnd) {
        expected = handle.position < m_bytes.size() ? m_bytes.substr(handle.position, count) : std::string();
        handle.isAtEnd = expected.size() < count;
    }
    handle.position += expected.size();
    const bool isNothing = expected.empty() && handle.isAtEnd;
    ASSERT_EQ(result, isNothing ? -1 : static_cast<std::int64_t>(expected.size()));
    ASSERT_EQ(buffer.substr(0, expected.size()), expected);
}

void StreamModel::write(Handle& handle) {
    if (!handle.writes) {
        ASSERT_EQ(errorCodeOf([&] { handle.stream->write("x", 1); }), ErrorCode::PermissionDenied);
        return;
    }
    const auto bytes = randomBytes(pickAroundBorders(m_shape.transfer));
    const auto result = handle.stream->write(bytes.data(), static_cast<std::int64_t>(bytes.size()));
    if (handle.isAtEnd || bytes.empty()) {
        ASSERT_EQ(result, -1);
        return;
    }
    ASSERT_EQ(result, static_cast<std::int64_t>(bytes.size()));
    if (handle.appends) {
        handle.position = m_bytes.size();
    }
    m_bytes.resize(std::max<std::size_t>(m_bytes.size(), handle.position + bytes.size()), '\0');
    m_bytes.replace(handle.position, bytes.size(), bytes);
    handle.position += bytes.size();
    m_isChanged = true;
    handle.hasChanged = true;
}

void StreamModel::resize(Handle& handle) {
    const auto size = pickAroundBorders(m_shape.object + 2);
    if (!handle.writes) {
        ASSERT_EQ(errorCodeOf([&] { resizeStream(*handle.stream, size); }), ErrorCode::PermissionDenied);
        return;
    }
    resizeStream(*handle.stream, size);
    if (size != m_bytes.size()) {
        m_bytes.resize(size, '\0');
        m_isChanged = true;
        handle.hasChanged = true;
    }
}

void StreamModel::noteStored() {
    if (m_isChanged) {
        m_stored = m_bytes;
        m_replacesAnything = false;
    }
    m_isChanged = false;
    m_isCountedOn = false;
    for (auto& handle : m_streams) {
        handle.hasChanged = false;
    }
}

void StreamModel::store(const Handle& handle) {
    storeStream(*handle.stream);
    if (handle.writes) {
        noteStored();
    }
    ASSERT_EQ(contentOf(m_store, m_key), m_stored);
}

void StreamModel::abandon(const Handle& handle) {
    const bool isAlone = m_streams.size() == 1 && !m_isCountedOn;
    ASSERT_EQ(abandonStream(*handle.stream), isAlone);
    if (isAlone) {
        m_streams.clear();
        ASSERT_EQ(contentOf(m_store, m_key), m_stored);
    }
}

// Somebody else replaces or removes the object. Unless the streams are to replace whatever is there, none of them
// reads or stores anything but a whole version any more, or says that the object is in use.
void StreamModel::letAnotherWriterIn() {
    const bool isRemoved = pick(0, 2) == 0;
    if (isRemoved && !m_stored) {
        return;
    }
    m_stored = isRemoved ? std::nullopt : std::optional(randomBytes(pickAroundBorders(m_shape.object)));
    if (isRemoved) {
        m_store.deleteObject(m_key);
    } else {
        storeObject(m_store, m_key, *m_stored);
    }
    if (m_replacesAnything) {
        return;
    }
    for (auto& handle : m_streams) {
        seek(handle);
        if (const auto failure = errorCodeOf([&] { read(handle); })) {
            ASSERT_EQ(failure, ErrorCode::InUse);
        }
    }
    while (!m_streams.empty()) {
        const auto failure = errorCodeOf([&] { m_streams.back().stream->close(); });
        m_streams.pop_back();
        ASSERT_TRUE(!failure || failure == ErrorCode::InUse);
        ASSERT_TRUE(failure.has_value() == m_isChanged || !m_streams.empty());
    }
    ASSERT_EQ(contentOf(m_store, m_key), m_stored);
}

// The streams go on, and nothing of what they do is stored. What they have not fetched is still there.
void StreamModel::detach(const Handle& handle) {
    detachStream(*handle.stream);
    std::unique_ptr<foundation::storage::provider::ByteStream> opener;
    const auto failure = errorCodeOf([&] { opener = m_provider.openReadOnlyStream(m_file); });
    ASSERT_EQ(failure, m_stored ? std::nullopt : std::optional(ErrorCode::NotFound));
    if (opener) {
        std::string bytes(m_stored->size() + 1, '?');
        const auto count = opener->read(bytes.data(), static_cast<std::int64_t>(bytes.size()));
        ASSERT_EQ(bytes.substr(0, static_cast<std::size_t>(std::max<std::int64_t>(count, 0))), *m_stored);
    }
    for (int step = 0; step < 10 && !testing::Test::HasFailure(); ++step) {
        use(anyStream(), pick(0, 82));
    }
    storeStream(*anyStream().stream);
    m_streams.clear();
    ASSERT_EQ(contentOf(m_store, m_key), m_stored);
}

void StreamModel::seek(Handle& handle) {
    const auto way = static_cast<std::ios_base::seekdir>(pick(0, 2));
    auto offset = static_cast<std::int64_t>(pickAroundBorders(m_shape.object + 2));
    if (way != std::ios_base::beg && pick(0, 2) != 0) {
        offset = -offset;
    }
    auto base = static_cast<std::int64_t>(way == std::ios_base::beg   ? 0
                                          : way == std::ios_base::cur ? handle.position
                                                                      : m_bytes.size());
    const auto limit = static_cast<std::int64_t>(m_shape.file * m_shape.partSize);  // keeps the file small
    if (base + offset > limit) {
        offset = -base;
    }
    const auto expected = std::max<std::int64_t>(0, base + offset);
    ASSERT_EQ(handle.stream->seek(offset, way), std::streampos(expected));
    handle.position = static_cast<std::uint64_t>(expected);
    handle.isAtEnd = false;
}

void StreamModel::close(Handle& handle) {
    if (pick(0, 1) == 0) {
        handle.stream->close();
    }
    m_isCountedOn = m_isCountedOn || handle.hasChanged;
    m_streams.erase(m_streams.begin() + (&handle - m_streams.data()));
    if (m_streams.empty()) {
        noteStored();
    }
    ASSERT_EQ(contentOf(m_store, m_key), m_stored);
}

}  // namespace storage::cloudprovider::test
