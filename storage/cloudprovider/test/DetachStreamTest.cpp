// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"

#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/detachStream.hpp>
#include <storage/cloudprovider/resizeStream.hpp>
#include <storage/cloudprovider/storeStream.hpp>

#include <chrono>
#include <functional>
#include <future>
#include <thread>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ErrorCode;

class DetachStreamTest : public EngineTest {
protected:
    void storeFourParts() { m_client->storeParts(m_key, m_content, {8, 8, 8, 3}); }

    static std::optional<ErrorCode> readAt(const Stream& stream, std::int64_t offset, std::string& bytes) {
        return errorCodeOf([&] {
            stream->seek(offset, std::ios_base::beg);
            stream->read(bytes.data(), static_cast<std::int64_t>(bytes.size()));
        });
    }

    const std::string m_content = "0123456789abcdefghijklmnopq";
};

TEST_F(DetachStreamTest, NothingIsStoredAnyMoreAndTheNameIsFree) {
    for (const bool tellsVersions : {false, true}) {
        for (const bool isLarge : {false, true}) {
            for (const bool isRemoved : {false, true}) {
                SCOPED_TRACE(testing::Message() << tellsVersions << isLarge << isRemoved);
                startAnew(tellsVersions);
                m_client->store(m_key, "stored");
                const auto writer = openFile(replace());
                const auto reader = openForReading();
                const auto ours = isLarge ? m_content : std::string("ours");
                write(writer, ours);  // of the large one, three parts were sent
                detachStream(isLarge ? *reader : *writer);
                detachStream(*writer);
                EXPECT_EQ(m_client->openUploads(), 0U) << "what was sent is given up";
                EXPECT_FALSE(isOpen());
                std::optional<std::string> expected = "stored";
                if (isRemoved) {
                    m_provider->removeFile(m_file);
                    expected.reset();
                } else {
                    const auto opener = openFile(update(Options::WriteMode::Append));
                    EXPECT_EQ(readAll(opener), *expected);
                    opener->seek(0, std::ios_base::end);
                    write(opener, ", more");
                    opener->close();
                    *expected += ", more";
                }
                m_client->clearCalls();
                EXPECT_EQ(readAll(reader), ours);
                writer->seek(0, std::ios_base::end);
                write(writer, m_content);
                resizeStream(*writer, ours.size() + 20);
                EXPECT_EQ(readAll(reader), ours + m_content.substr(0, 20));
                storeStream(*writer);
                writer->close();
                EXPECT_EQ(readAll(reader), ours + m_content.substr(0, 20));
                EXPECT_TRUE(abandonStream(*reader)) << "nothing can be lost any more";
                EXPECT_EQ(m_client->callCount(), 0U);
                EXPECT_EQ(m_client->content(m_key), expected);
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

TEST_F(DetachStreamTest, WhatWasNotFetchedIsNotFoundOnceItCannotBeHad) {
    const ScopedVariable cache("VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE", "0");
    enum class Meanwhile { Nothing, Removed, Replaced };
    for (const bool tellsVersions : {false, true}) {
        for (const auto meanwhile : {Meanwhile::Nothing, Meanwhile::Removed, Meanwhile::Replaced}) {
            SCOPED_TRACE(testing::Message() << tellsVersions << static_cast<int>(meanwhile));
            startAnew(tellsVersions);
            storeFourParts();
            const auto stream = openFile(update());
            std::string bytes(3, '?');
            EXPECT_FALSE(readAt(stream, 9, bytes));
            detachStream(*stream);
            if (meanwhile == Meanwhile::Removed) {
                m_client->deleteObject(m_key);
            } else if (meanwhile == Meanwhile::Replaced) {
                m_client->store(m_key, "shorter");
            }
            const auto expected =
                tellsVersions && meanwhile == Meanwhile::Nothing ? std::nullopt : std::optional(ErrorCode::NotFound);
            EXPECT_EQ(readAt(stream, 16, bytes), expected);
            EXPECT_EQ(bytes, expected ? m_content.substr(9, 3) : m_content.substr(16, 3));
            EXPECT_EQ(errorCodeOf([&] { write(stream, "x"); }), expected);
            for (int time = 0; time < 2; ++time) {
                EXPECT_FALSE(readAt(stream, 9, bytes)) << "given up while the cache is full";
                EXPECT_EQ(bytes, m_content.substr(9, 3));
                stream->seek(100, std::ios_base::beg);
            }
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(DetachStreamTest, AStoreThatIsBusyIsNotTheEnd) {
    startAnew(true);
    storeFourParts();
    const auto stream = openFile(update());
    detachStream(*stream);
    m_client->failOperation("getRange");
    std::string bytes(3, '?');
    EXPECT_EQ(readAt(stream, 9, bytes), ErrorCode::Unknown);
    EXPECT_FALSE(readAt(stream, 9, bytes));
}

TEST_F(DetachStreamTest, AStoreThatIsUnderWayIsFinished) {
    for (const bool isLarge : {false, true}) {
        startAnew();
        isLarge ? storeFourParts() : m_client->store(m_key, "old");
        auto expected = m_client->content(m_key).value();
        expected[0] = 'X';
        const auto storer = openFile(update());
        const auto other = openFile(update());
        write(storer, "X");
        auto& gate = m_client->gate(isLarge ? "uploadPart" : "putObject");
        auto storing = std::async(std::launch::async, [&] { storeStream(*storer); });
        EXPECT_TRUE(gate.waitForArrivals());
        auto leaving = std::async(std::launch::async, [&] { detachStream(*other); });
        EXPECT_NE(leaving.wait_for(std::chrono::milliseconds(20)), std::future_status::ready);
        gate.open();
        storing.get();
        leaving.get();
        EXPECT_EQ(m_client->content(m_key), expected);
        write(storer, "Y");
        storer->close();
        other->close();
        EXPECT_EQ(m_client->content(m_key), expected);
    }
}

// Of a store that tells no versions, bytes of somebody else's object arrive for a fetch that began before.
TEST_F(DetachStreamTest, WhatIsFetchedAheadMeanwhileIsNotTakenForTheFiles) {
    m_options.transferThreads = 1;
    m_options.readAheadParts = 1;
    startAnew();
    storeFourParts();
    const auto stream = openForReading();
    std::string bytes(9, '?');
    ASSERT_EQ(stream->read(bytes.data(), 9), 9);
    while (m_client->count("getObject") < 3) {
        std::this_thread::yield();
    }
    auto& gate = m_client->gate("getObject");
    bytes.resize(8);
    ASSERT_EQ(stream->read(bytes.data(), 8), 8);
    ASSERT_TRUE(gate.waitForArrivals());  // for the fourth part
    detachStream(*stream);
    m_client->storeParts(m_key, std::string(27, 'N'), {8, 8, 8, 3});
    gate.open();
    EXPECT_EQ(stream->read(bytes.data(), 7), 7);  // what is left of the third part
    EXPECT_EQ(errorCodeOf([&] { stream->read(bytes.data(), 1); }), ErrorCode::NotFound);
}

}  // namespace storage::cloudprovider::test
