// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"
#include "ScopedMainContext.hpp"
#include "support/interrupt.hpp"

#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/readInPieces.hpp>

#include <atomic>
#include <chrono>
#include <future>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ErrorCode;

class ParallelReadTest : public EngineTest {
protected:
    // What came, which is each byte once.
    std::string readWhole(std::size_t size) const {
        foundation::Mutex mutex;
        std::string all(size, '\0');
        std::string came(size, '0');
        readInPieces(*m_provider, m_file, [&](std::uint64_t offset, std::string_view bytes) {
            const foundation::MutexLock lock(mutex);
            all.replace(offset, bytes.size(), bytes);
            for (auto at = offset; at < offset + bytes.size(); ++at) {
                ++came.at(at);
            }
        });
        EXPECT_EQ(came, std::string(size, '1'));
        return all;
    }
};

TEST_F(ParallelReadTest, EveryByteComesOnceAndNoneByWayOfTheTemporaryDisk) {
    for (const bool tellsVersions : {false, true}) {
        for (const std::uint32_t threads : {0U, 1U, 2U, 8U}) {
            for (const std::size_t size : {0U, 1U, 8U, 9U, 83U, 4000U}) {
                SCOPED_TRACE(testing::Message() << threads << " threads, " << size << " bytes");
                startWith(threads, someBytes(size), tellsVersions);
                EXPECT_EQ(readWhole(size), someBytes(size));
                EXPECT_EQ(m_folder.fileCount(), 0U);
                EXPECT_FALSE(isOpen());
                EXPECT_LE(m_client->count("getRange"), threads < 2 ? 1U : 60U) << "in as few ranges as can be";
            }
        }
    }
}

TEST_F(ParallelReadTest, AllThreadsFetchAtOnce) {
    startWith(4, someBytes(100 * kPartSize));
    auto& gate = m_client->gate("getRange");
    auto reader = std::async(std::launch::async, [&] { return readWhole(100 * kPartSize); });
    EXPECT_TRUE(gate.waitForArrivals(4));
    std::set<std::uint64_t> sizes;
    for (const auto& call : m_client->calls()) {
        if (call.operation == "getRange") {
            sizes.insert((call.last - call.first + 1) / kPartSize);
        }
    }
    gate.open();
    EXPECT_EQ(reader.get(), someBytes(100 * kPartSize));
    EXPECT_EQ(sizes, (std::set<std::uint64_t>{25, 19, 14, 11})) << "a fourth of what was left each time";
}

TEST_F(ParallelReadTest, TheFirstFailureEndsItAndNothingComesAfterwards) {
    struct SinkFailure {};
    const auto bytes = someBytes(100 * kPartSize);
    for (const bool isOfSink : {false, true}) {
        SCOPED_TRACE(isOfSink ? "the sink's" : "the store's");
        startWith(4, bytes);
        std::atomic<bool> isOver{false};
        auto& gate = m_client->gate("getRange");
        auto reader = std::async(std::launch::async, [&] {
            readInPieces(*m_provider, m_file, [&](std::uint64_t, std::string_view) {
                EXPECT_FALSE(isOver);
                if (isOfSink) {
                    throw SinkFailure();
                }
            });
        });
        ASSERT_TRUE(gate.waitForArrivals(4));
        if (!isOfSink) {
            m_client->store(m_key, std::string(bytes.size(), 'x'));
        }
        gate.open();
        if (isOfSink) {
            EXPECT_THROW(reader.get(), SinkFailure);
        } else {
            EXPECT_EQ(errorCodeOf([&] { reader.get(); }), ErrorCode::InUse) << "nothing of the other version";
        }
        isOver = true;
        EXPECT_EQ(m_client->count("getRange"), 4U) << "nobody begins another range";
    }
}

TEST_F(ParallelReadTest, AnInterruptOfTheCallerEndsTheOtherThreads) {
    startWith(2, someBytes(100 * kPartSize));
    const ScopedMainContext context;
    const auto caller = std::this_thread::get_id();
    std::promise<void> other;
    const auto otherIsInterrupted = other.get_future().share();
    const auto sink = [&](std::uint64_t, std::string_view) {
        if (std::this_thread::get_id() == caller) {
            EXPECT_EQ(otherIsInterrupted.wait_for(std::chrono::seconds(10)), std::future_status::ready);
            return;
        }
        foundation::utInterruptState::RequestInterrupt();
        try {
            throwIfInterrupted();
        } catch (const foundation::OperationInterrupted&) {
            other.set_value();
            throw;
        }
    };
    EXPECT_ANY_THROW(readInPieces(*m_provider, m_file, sink))
        << "by the sink, or where the caller takes its next range";
    EXPECT_EQ(otherIsInterrupted.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    EXPECT_EQ(errorCodeOf([&] { readInPieces(*m_provider, m_file, {}); }), ErrorCode::Unknown) << "it is still pending";
}

TEST_F(ParallelReadTest, AnOpenFileIsReadWithWhatWasWrittenToIt) {
    startWith(2, "stored bytes of some parts");
    const auto writer = openFile(update());
    write(writer, "unsaved");
    EXPECT_EQ(readWhole(26), "unsavedbytes of some parts");
    EXPECT_THROW(
        readInPieces(*m_provider, m_file, [](std::uint64_t, std::string_view) { throw std::logic_error("sink"); }),
        std::logic_error);
    writer->close();
}

TEST_F(ParallelReadTest, WhatIsNotThereIsNotFound) {
    startWith(2, "");
    EXPECT_EQ(errorCodeOf([&] { readInPieces(*m_provider, IRI(u"/absent"), {}); }), ErrorCode::NotFound);
    EXPECT_EQ(errorCodeOf([&] { readInPieces(*m_provider, IRI(u"/"), {}); }), ErrorCode::NotFound);
}

}  // namespace storage::cloudprovider::test
