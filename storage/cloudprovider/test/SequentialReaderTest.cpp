// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"
#include "ScopedMainContext.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/openSequentialReader.hpp>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ErrorCode;

class SequentialReaderTest : public EngineTest {
protected:
    static constexpr std::uint64_t kRangeSize = 2 * kPartSize;

    Stream openReader() const { return openSequentialReader(*m_provider, m_file); }

    static std::string readBytes(const Stream& stream, std::size_t count) {
        std::string bytes(count, '\0');
        bytes.resize(static_cast<std::size_t>(stream->read(bytes.data(), static_cast<std::int64_t>(count))));
        return bytes;
    }

    template <typename Condition>
    static void waitUntil(Condition condition) {
        for (int tries = 0; !condition() && tries < 6000; ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ASSERT_TRUE(condition());
    }

    // Reads by so many bytes; -1 is the end.
    static std::string readBy(const Stream& stream, std::size_t piece) {
        std::string all;
        std::string buffer(piece, '\0');
        for (auto count = stream->read(buffer.data(), static_cast<std::int64_t>(piece)); count >= 0;
             count = stream->read(buffer.data(), static_cast<std::int64_t>(piece))) {
            all.append(buffer, 0, static_cast<std::size_t>(count));
            if (static_cast<std::size_t>(count) < piece) {
                EXPECT_EQ(stream->read(buffer.data(), 1), -1) << "less than was asked for only at the end";
            }
        }
        return all;
    }
};

TEST_F(SequentialReaderTest, AnyObjectIsReadInAnyPiecesWithoutTheTemporaryDisk) {
    for (const bool tellsVersions : {false, true}) {
        for (const std::uint32_t threads : {0U, 1U, 4U}) {
            for (const std::size_t size : {0U, 1U, 8U, 9U, 16U, 17U, 83U, 400U}) {
                for (const std::size_t piece : {1U, 5U, 16U, 100U, 1000U}) {
                    SCOPED_TRACE(testing::Message() << threads << " threads, " << size << " bytes by " << piece);
                    startWith(threads, someBytes(size), tellsVersions);
                    const auto stream = openReader();
                    ASSERT_EQ(readBy(stream, piece), someBytes(size));
                    ASSERT_EQ(m_folder.fileCount(), 0U);
                    ASSERT_FALSE(isOpen());
                    for (const auto& call : m_client->calls()) {
                        ASSERT_LE(call.operation == "getRange" && size > kRangeSize ? call.last - call.first + 1 : 0,
                                  kRangeSize);
                    }
                    stream->close();
                }
            }
        }
    }
}

TEST_F(SequentialReaderTest, MoreIsFetchedAheadTheMoreIsReadButNeverMoreThanThreadsAndBudgetAllow) {
    constexpr std::size_t kThreads = 4;
    startWith(kThreads, someBytes(100 * kRangeSize));
    const auto first = openReader();
    const auto second = openReader();
    const auto fetched = [&](std::size_t atLeast) {
        waitUntil([&] { return m_client->count("getRange") >= atLeast; });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // for one too many
        return m_client->count("getRange");
    };
    EXPECT_EQ(fetched(0), 0U) << "nothing before the first read";
    for (const std::size_t expected : {2U, 5U, 7U, 8U, 9U}) {  // read so far, and ahead of it 1, 3, and then 4
        readBytes(first, kRangeSize);
        EXPECT_EQ(fetched(expected), expected);
    }
    readBytes(second, kRangeSize);
    EXPECT_EQ(fetched(10), 10U) << "its own range, but none ahead: the first reader has them all";
}

TEST_F(SequentialReaderTest, WhatIsNoLongerStoredIsNotMixedWithWhatIs) {
    startWith(0, someBytes(5 * kRangeSize));
    const auto stream = openReader();
    readBytes(stream, 1);
    m_client->store(m_key, std::string(5 * kRangeSize, 'x'));
    EXPECT_NO_THROW(readBytes(stream, kRangeSize - 2));
    EXPECT_EQ(errorCodeOf([&] { readBytes(stream, 2); }), ErrorCode::InUse);
    EXPECT_EQ(errorCodeOf([&] { readBytes(stream, 1); }), ErrorCode::InUse)
        << "one of the two was lost: no more can be told";
}

TEST_F(SequentialReaderTest, AFetchAheadThatFailsIsTriedAgainByTheReader) {
    const auto bytes = someBytes(20 * kRangeSize);
    startWith(2, bytes);
    const auto stream = openReader();
    readBytes(stream, 1);
    waitUntil([&] { return m_client->count("getRange") == 2; });
    m_client->failOperation("getRange");
    const auto second = readBytes(stream, kRangeSize);  // which was there: what is fetched meanwhile lies ahead
    EXPECT_EQ(second, bytes.substr(1, kRangeSize));
    waitUntil([&] { return m_client->faultCount() == 1; });
    EXPECT_EQ(readBy(stream, 7), bytes.substr(1 + kRangeSize));
}

TEST_F(SequentialReaderTest, AReadThatFailsBeforeItsFirstByteCanBeTriedAgain) {
    const auto bytes = someBytes(3 * kRangeSize);
    startWith(0, bytes);
    const auto stream = openReader();
    m_client->failOperation("getRange", 2);
    EXPECT_EQ(readBytes(stream, kRangeSize), bytes.substr(0, kRangeSize));
    EXPECT_EQ(errorCodeOf([&] { readBytes(stream, 1); }), ErrorCode::Unknown);
    EXPECT_EQ(readBy(stream, 7), bytes.substr(kRangeSize));
}

TEST_F(SequentialReaderTest, AnInterruptedReaderLeavesWhatIsOnItsWay) {
    startWith(2, someBytes(50 * kRangeSize));
    auto stream = openReader();
    readBytes(stream, 1);
    waitUntil([&] { return m_client->count("getRange") == 2; });
    auto& gate = m_client->gate("getRange");
    readBytes(stream, 2 * kRangeSize - 1);
    ASSERT_TRUE(gate.waitForArrivals(2)) << "both threads are ahead of the reader";
    {
        const ScopedMainContext context;
        foundation::utInterruptState::RequestInterrupt();
        EXPECT_EQ(errorCodeOf([&] { readBytes(stream, 1); }), ErrorCode::Unknown);
    }
    stream->close();
    stream->close();
    EXPECT_EQ(errorCodeOf([&] { readBytes(stream, 1); }), ErrorCode::Unknown);
    stream.reset();
    gate.open();
}

TEST_F(SequentialReaderTest, AnOpenFileIsReadWithWhatWasWrittenToIt) {
    startWith(2, "stored bytes of some parts");
    const auto writer = openFile(update());
    write(writer, "unsaved");
    EXPECT_EQ(readAll(openReader()), "unsavedbytes of some parts");
    writer->close();
}

TEST_F(SequentialReaderTest, NothingButReadingOnIsOffered) {
    startWith(0, "bytes");
    const auto stream = openReader();
    EXPECT_EQ(errorCodeOf([&] { stream->write("x", 1); }), ErrorCode::PermissionDenied);
    EXPECT_EQ(errorCodeOf([&] { stream->seek(0, std::ios_base::cur); }), ErrorCode::Unsupported);
    EXPECT_EQ(errorCodeOf([&] { openSequentialReader(*m_provider, IRI(u"/absent")); }), ErrorCode::NotFound);
    EXPECT_EQ(errorCodeOf([&] { openSequentialReader(*m_provider, IRI(u"/")); }), ErrorCode::NotFound);
}

}  // namespace storage::cloudprovider::test
