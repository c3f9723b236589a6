// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>

namespace storage::cloudprovider::test {

namespace {

using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::StorageIRI;
using Stream = std::unique_ptr<foundation::storage::provider::ByteStream>;

// Several streams of one file, beside what a plain text would make of the same operations.
class StreamModel {
public:
    StreamModel(std::uint64_t seed, const StorageIRI& file, const std::string& key, FakeCloudClient& client,
                foundation::storage::provider::IProvider& provider)
        : m_random(seed),
          m_partSize(pick(0, 3) == 0 ? pick(1, 4) : pick(5, 200)),
          m_file(file),
          m_key(key),
          m_client(client),
          m_provider(provider),
          m_partSizeVariable("VX_CLOUD_PART_SIZE_OVERRIDE", std::to_string(m_partSize)),
          m_cacheVariable("VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE", std::to_string(pick(0, 6) * m_partSize)) {
        storeSomething();
    }

    void step() {
        const auto choice = pick(0, 99);
        if (m_streams.empty() || (choice < 8 && m_streams.size() < 4)) {
            open();
        } else if (choice < 40) {
            read(anyStream());
        } else if (choice < 70) {
            write(anyStream());
        } else if (choice < 88) {
            seek(anyStream());
        } else {
            close(anyStream());
        }
    }

    void finish() {
        while (!m_streams.empty() && !testing::Test::HasFailure()) {
            close(m_streams.front());
        }
    }

private:
    struct Handle {
        Stream stream;
        std::uint64_t position = 0;
        bool isAtEnd = false;
        bool appends = false;
        bool reads = true;
        bool writes = true;
    };

    std::uint64_t pick(std::uint64_t least, std::uint64_t most) {
        return std::uniform_int_distribution<std::uint64_t>(least, most)(m_random);
    }

    std::string randomBytes(std::uint64_t count) {
        std::string bytes(count, '\0');
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<char>(pick(1, 255)); });
        return bytes;
    }

    // Lengths and positions crowd around the borders of parts.
    std::uint64_t pickAroundBorders(std::uint64_t mostParts) {
        const auto border = pick(0, mostParts) * m_partSize;
        const auto jitter = pick(0, 4);
        return pick(0, 2) == 0 ? pick(0, mostParts * m_partSize) : border + jitter - std::min<std::uint64_t>(border, 2);
    }

    Handle& anyStream() { return m_streams[pick(0, m_streams.size() - 1)]; }

    void storeSomething() {
        const auto kind = pick(0, 2);
        if (kind == 0) {
            return;
        }
        m_stored = randomBytes(pickAroundBorders(6));
        if (kind == 1 || m_stored->empty()) {
            m_client.store(m_key, *m_stored);
            return;
        }
        std::vector<std::uint64_t> sizes;
        for (auto left = m_stored->size(); left > 0; left -= sizes.back()) {
            sizes.push_back(std::min<std::uint64_t>(left, pick(1, 2 * m_partSize)));
        }
        m_client.storeParts(m_key, *m_stored, sizes);
    }

    void open() {
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
            const bool discards =
                !isReadOnly && options.existingContent == ByteStreamOpenOptions::ExistingContent::Discard;
            m_bytes = discards ? std::string() : m_stored.value_or(std::string());
            m_isChanged = discards;
        }
        handle.appends = !isReadOnly && options.writeMode == ByteStreamOpenOptions::WriteMode::Append;
        handle.reads = isReadOnly || options.access == ByteStreamOpenOptions::Access::ReadWrite;
        handle.writes = !isReadOnly;
        m_streams.push_back(std::move(handle));
    }

    void read(Handle& handle) {
        const auto count = pickAroundBorders(3);
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

    void write(Handle& handle) {
        if (!handle.writes) {
            ASSERT_EQ(errorCodeOf([&] { handle.stream->write("x", 1); }), ErrorCode::PermissionDenied);
            return;
        }
        const auto bytes = randomBytes(pickAroundBorders(3));
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
    }

    void seek(Handle& handle) {
        const auto way = static_cast<std::ios_base::seekdir>(pick(0, 2));
        auto offset = static_cast<std::int64_t>(pickAroundBorders(8));
        if (way != std::ios_base::beg && pick(0, 2) != 0) {
            offset = -offset;
        }
        auto base = static_cast<std::int64_t>(way == std::ios_base::beg   ? 0
                                              : way == std::ios_base::cur ? handle.position
                                                                          : m_bytes.size());
        const auto limit = static_cast<std::int64_t>(40 * m_partSize);  // keeps the file small
        if (base + offset > limit) {
            offset = -base;
        }
        const auto expected = std::max<std::int64_t>(0, base + offset);
        ASSERT_EQ(handle.stream->seek(offset, way), std::streampos(expected));
        handle.position = static_cast<std::uint64_t>(expected);
        handle.isAtEnd = false;
    }

    void close(Handle& handle) {
        if (pick(0, 1) == 0) {
            handle.stream->close();
        }
        m_streams.erase(m_streams.begin() + (&handle - m_streams.data()));
        if (m_streams.empty() && m_isChanged) {
            m_stored = m_bytes;
        }
        ASSERT_EQ(m_client.content(m_key), m_stored);
    }

    std::mt19937_64 m_random;
    const std::uint64_t m_partSize;
    const StorageIRI& m_file;
    const std::string& m_key;
    FakeCloudClient& m_client;
    foundation::storage::provider::IProvider& m_provider;
    const ScopedVariable m_partSizeVariable;
    const ScopedVariable m_cacheVariable;

    std::optional<std::string> m_stored;
    std::string m_bytes;
    bool m_isChanged = false;
    std::vector<Handle> m_streams;
};

}  // namespace

class ModelTest : public EngineTest {};

// MODEL_SEED=N runs that seed alone.
TEST_F(ModelTest, StreamsOfOneFileBehaveLikeAPlainText) {
    const char* const chosen = std::getenv("MODEL_SEED");
    const std::uint64_t first = chosen != nullptr ? std::strtoull(chosen, nullptr, 10) : 1;
    const std::uint64_t last = chosen != nullptr ? first : 250;
    for (std::uint64_t seed = first; seed <= last; ++seed) {
        SCOPED_TRACE("MODEL_SEED=" + std::to_string(seed));
        const std::string key = "file" + std::to_string(seed);
        const IRI file = IRI::fromUtf8("/" + key);
        StreamModel run(seed, file, key, *m_client, *m_provider);
        try {
            for (int count = 0; count < 80 && !HasFailure(); ++count) {
                run.step();
            }
            run.finish();
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
        ASSERT_FALSE(HasFailure());
        ASSERT_EQ(m_client->openUploads(), 0U);
        ASSERT_EQ(m_folder.fileCount(), 0U);
    }
}

}  // namespace storage::cloudprovider::test
