// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"

#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/storeStream.hpp>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>
#include <thread>

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
                foundation::storage::provider::IProvider& provider, bool tellsVersions)
        : m_random(seed),
          m_tellsVersions(tellsVersions),
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
        } else if (choice < 84) {
            seek(anyStream());
        } else if (choice < 88) {
            store(anyStream());
        } else if (choice < 90) {
            abandon(anyStream());
        } else if (choice < 92 && m_tellsVersions) {
            letAnotherWriterIn();
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
        bool hasChanged = false;  // since the file was stored
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
            m_replacesAnything = discards;
            m_isCountedOn = false;
            handle.hasChanged = discards;
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
        handle.hasChanged = true;
    }

    void noteStored() {
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

    void store(const Handle& handle) {
        storeStream(*handle.stream);
        if (handle.writes) {
            noteStored();
        }
        ASSERT_EQ(m_client.content(m_key), m_stored);
    }

    void abandon(const Handle& handle) {
        const bool isAlone = m_streams.size() == 1 && !m_isCountedOn;
        ASSERT_EQ(abandonStream(*handle.stream), isAlone);
        if (isAlone) {
            m_streams.clear();
            ASSERT_EQ(m_client.content(m_key), m_stored);
        }
    }

    // Somebody else replaces or removes the object. Unless the streams are to replace whatever is there, none of them
    // reads or stores anything but a whole version any more, or says that the object is in use.
    void letAnotherWriterIn() {
        const bool isRemoved = pick(0, 2) == 0;
        if (isRemoved && !m_stored) {
            return;
        }
        m_stored = isRemoved ? std::nullopt : std::optional(randomBytes(pickAroundBorders(4)));
        if (isRemoved) {
            m_client.deleteObject(m_key);
        } else {
            m_client.store(m_key, *m_stored);
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
        ASSERT_EQ(m_client.content(m_key), m_stored);
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
        m_isCountedOn = m_isCountedOn || handle.hasChanged;
        m_streams.erase(m_streams.begin() + (&handle - m_streams.data()));
        if (m_streams.empty()) {
            noteStored();
        }
        ASSERT_EQ(m_client.content(m_key), m_stored);
    }

    std::mt19937_64 m_random;
    const bool m_tellsVersions;
    const std::uint64_t m_partSize;
    const StorageIRI& m_file;
    const std::string& m_key;
    FakeCloudClient& m_client;
    foundation::storage::provider::IProvider& m_provider;
    const ScopedVariable m_partSizeVariable;
    const ScopedVariable m_cacheVariable;

    std::optional<std::string> m_stored;
    std::string m_bytes;
    bool m_isChanged = false;         // since the file was stored
    bool m_isCountedOn = false;       // by a stream that closed with a change that is not stored
    bool m_replacesAnything = false;  // the file was opened with Discard, and not stored since
    std::vector<Handle> m_streams;
};

}  // namespace

class ModelTest : public EngineTest {
protected:
    // One thread's piece of a file that others change at the same time: random operations beside a plain text.
    void workOnRegion(std::uint64_t seed, std::size_t begin, std::string& region) const {
        std::mt19937_64 random(seed);
        const auto pick = [&](std::size_t least, std::size_t most) {
            return std::uniform_int_distribution<std::size_t>(least, most)(random);
        };
        auto stream = openFile(update());
        for (int step = 0; step < 60; ++step) {
            const auto at = pick(0, region.size() - 1);
            const auto size = pick(1, region.size() - at);
            const auto choice = pick(0, 9);
            stream->seek(static_cast<std::streamoff>(begin + at), std::ios_base::beg);
            if (choice < 4) {
                std::string bytes(size, static_cast<char>(pick('a', 'z')));
                write(stream, bytes);
                region.replace(at, size, bytes);
            } else if (choice < 8) {
                std::string bytes(size, '?');
                ASSERT_EQ(stream->read(bytes.data(), static_cast<std::int64_t>(size)), static_cast<std::int64_t>(size));
                ASSERT_EQ(bytes, region.substr(at, size));
            } else if (choice == 8) {
                storeStream(*stream);
                ASSERT_EQ(m_client->content(m_key)->substr(begin, region.size()), region);
            } else {
                stream->close();
                stream = openFile(update());
            }
        }
        stream->close();
    }
};

// MODEL_SEED=N runs that seed alone.
TEST_F(ModelTest, StreamsOfOneFileBehaveLikeAPlainText) {
    const char* const chosen = std::getenv("MODEL_SEED");
    const std::uint64_t first = chosen != nullptr ? std::strtoull(chosen, nullptr, 10) : 1;
    const std::uint64_t last = chosen != nullptr ? first : 400;
    for (std::uint64_t seed = first; seed <= last; ++seed) {
        SCOPED_TRACE("MODEL_SEED=" + std::to_string(seed));
        const std::string key = "file" + std::to_string(seed);
        const IRI file = IRI::fromUtf8("/" + key);
        const bool tellsVersions = seed % 2 == 0;
        m_options.transferThreads = static_cast<std::uint32_t>(seed % 3 * (seed % 3));  // 0, 1 or 4
        m_options.readAheadParts = static_cast<std::uint32_t>(seed % 4);
        startAnew(tellsVersions);
        StreamModel run(seed, file, key, *m_client, *m_provider, tellsVersions);
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
        m_provider.reset();  // ends what is still fetched ahead
        ASSERT_EQ(m_folder.fileCount(), 0U);
    }
}

TEST_F(ModelTest, ThreadsChangeTheirRegionsOfOneFile) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kRegion = 5 * kPartSize + 3;  // regions meet inside parts
    const ScopedVariable cache("VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE", std::to_string(2 * kPartSize));
    for (std::uint64_t seed = 1; seed <= 12 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        m_options.transferThreads = static_cast<std::uint32_t>(seed % 3 * (seed % 3));  // 0, 1 or 4
        m_options.readAheadParts = static_cast<std::uint32_t>(seed % 4);
        startAnew(seed % 2 == 0);
        std::vector<std::string> regions(kThreads, std::string(kRegion, '-'));
        m_client->storeParts(m_key, std::string(kThreads * kRegion, '-'), {kRegion, 2 * kRegion, kRegion});
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (std::size_t thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&, thread] {
                try {
                    workOnRegion(seed * kThreads + thread, thread * kRegion, regions[thread]);
                } catch (const std::exception& failure) {
                    ADD_FAILURE() << failure.what();
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        std::string expected;
        for (const auto& region : regions) {
            expected += region;
        }
        EXPECT_EQ(m_client->content(m_key), expected);
        EXPECT_EQ(m_client->openUploads(), 0U);
        EXPECT_EQ(m_client->violations(), std::vector<std::string>());
    }
}

}  // namespace storage::cloudprovider::test
