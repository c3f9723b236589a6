// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"

#include <storage/cloudprovider/resizeStream.hpp>
#include <storage/cloudprovider/storeStream.hpp>
#include <storage/cloudprovider/testing/StreamModel.hpp>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

namespace storage::cloudprovider::test {

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

    // Cuts the end of a file off and lets it grow, over and over, but keeps what it has at the beginning.
    void resizeBehind(std::size_t least, const std::atomic<bool>& goesOn) const {
        std::mt19937_64 random(least);
        const auto stream = openFile(update());
        while (goesOn) {
            resizeStream(*stream, least + std::uniform_int_distribution<std::size_t>(0, 3 * kPartSize)(random));
        }
        resizeStream(*stream, least);
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
        std::mt19937_64 random(seed);
        const auto pick = [&](std::uint64_t least, std::uint64_t most) {
            return std::uniform_int_distribution<std::uint64_t>(least, most)(random);
        };
        const StreamModel::Shape shape{.partSize = pick(0, 3) == 0 ? pick(1, 4) : pick(5, 200),
                                       .tellsVersions = tellsVersions};
        const ScopedVariable partSize("VX_CLOUD_PART_SIZE_OVERRIDE", std::to_string(shape.partSize));
        const ScopedVariable cache("VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE",
                                   std::to_string(pick(0, 6) * shape.partSize));
        m_storeOptions.sendsStarts = seed % 4 == 0;
        startAnew(tellsVersions);
        StreamModel run(seed, shape, file, key, *m_provider, *m_client);
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

// Others resize it meanwhile, where the last region ends inside a part.
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
        m_client->storeParts(m_key, std::string(kThreads * kRegion, '-'), {kRegion, 2 * kRegion, kRegion - 3, 3});
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
        std::atomic<bool> isResized = seed % 4 != 1;
        std::thread resizer([&] {
            try {
                resizeBehind(kThreads * kRegion, isResized);
            } catch (const std::exception& failure) {
                ADD_FAILURE() << failure.what();
            }
        });
        for (auto& thread : threads) {
            thread.join();
        }
        isResized = false;
        resizer.join();
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
