// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"
#include "ScopedMainContext.hpp"
#include "TraceGate.hpp"

#include <foundation/services/InterruptScope.hpp>
#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/openSequentialWriter.hpp>
#include <storage/cloudprovider/storeStream.hpp>
#include <storage/cloudprovider/testing/VersionedFakeClient.hpp>

#include <boost/filesystem/operations.hpp>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <thread>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ReplacementPolicy;
using When = CallControl::When;

// Transfers that a pool of threads makes.
class TransferTest : public EngineTest {
protected:
    static std::size_t threadCount() { return countEntries("/proc/self/task"); }

    // Waits until there are so many; a joined thread leaves the list only a moment later.
    static bool threadsBecome(std::size_t count) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (threadCount() != count && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        return threadCount() == count;
    }

    void startWith(std::uint32_t threads) {
        m_options.transferThreads = threads;
        startAnew();
    }

    // Bytes of that many parts.
    static std::string bytesOf(std::size_t parts) {
        std::string bytes;
        for (std::size_t part = 0; part < parts; ++part) {
            bytes += std::string(kPartSize, static_cast<char>('a' + part % 26));
        }
        return bytes;
    }
};

TEST_F(TransferTest, ThreadsAreStartedAsTheyAreNeededAndEndWithTheProvider) {
    std::atomic<bool> waiting = true;  // a sanitizer starts one of its own with the first
    std::thread first([&] { waiting.wait(true); });
    const auto before = threadCount() - 1;
    waiting = false;
    waiting.notify_one();
    first.join();
    for (const std::uint32_t threads : {0U, 3U}) {
        startWith(threads);
        EXPECT_TRUE(threadsBecome(before));
        auto stream = openFile(replace());
        write(stream, bytesOf(10));
        EXPECT_LE(threadCount(), before + threads);
        EXPECT_EQ(threadCount() > before, threads != 0);
        m_provider.reset();  // the stream keeps the threads
        write(stream, bytesOf(1));
        stream->close();
        stream.reset();
        EXPECT_EQ(m_client->content(m_key), bytesOf(10) + bytesOf(1));
        m_providersClient.reset();
        EXPECT_TRUE(threadsBecome(before)) << threadCount() << " instead of " << before;
    }
    startWith(0);
}

TEST_F(TransferTest, PartsAreSentAtOnce) {
    startWith(4);
    const auto stream = openFile(replace());
    auto& gate = m_client->gate("uploadPart");
    auto writing = std::async(std::launch::async, [&] { write(stream, bytesOf(12)); });
    EXPECT_TRUE(gate.waitForArrivals(5)) << "four threads, and the one that waits for room";
    gate.open();
    writing.get();
    stream->close();
    EXPECT_EQ(m_client->content(m_key), bytesOf(12));
}

TEST_F(TransferTest, WhatWasNotChangedIsCopiedWhileTheRestIsSent) {
    startWith(2);
    m_client->storeParts(m_key, bytesOf(3), std::vector<std::uint64_t>(3, kPartSize));
    const auto stream = openFile(update());
    stream->seek(kPartSize, std::ios_base::beg);
    write(stream, "X");
    auto& sending = m_client->gate("uploadPart");
    auto& copying = m_client->gate("copyPart");
    auto storing = std::async(std::launch::async, [&] { stream->close(); });
    EXPECT_TRUE(sending.waitForArrivals(1));
    EXPECT_TRUE(copying.waitForArrivals(1));
    copying.open();
    sending.open();
    storing.get();
    EXPECT_EQ(m_client->content(m_key), bytesOf(3).replace(kPartSize, 1, "X"));
}

TEST_F(TransferTest, NoMoreThreadsSendThanAreUseful) {
    FakeCloudClient::Options options;
    options.limits.UsefulUploads = 1;
    m_client = std::make_shared<FakeCloudClient>(options);
    m_options.transferThreads = 3;
    m_providersClient = std::make_shared<VersionedFakeClient>(m_client);
    m_provider = buildCloudProvider(m_providersClient, FolderPolicy::MarkerObjects, false, m_options);
    auto& gate = m_client->gate("uploadPart");
    const auto stream = openFile(replace());
    write(stream, bytesOf(5));  // three parts are handed over: not more than threads, so that the writer goes on
    ASSERT_TRUE(gate.waitForArrivals(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(m_client->count("uploadPart"), 1U);
    gate.open();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (m_client->count("uploadPart") < 3 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_EQ(m_client->count("uploadPart"), 3U) << "the pool goes on without anybody who asks for it";
    stream->close();
    EXPECT_EQ(m_client->content(m_key), bytesOf(5));
}

TEST_F(TransferTest, WhoReadsOnFindsTheNextPartsFetched) {
    m_options.readAheadParts = 3;
    startWith(2);
    m_client->storeParts(m_key, bytesOf(8), std::vector<std::uint64_t>(8, kPartSize));
    const auto stream = openForReading();
    std::string bytes(kPartSize + 1, '?');
    ASSERT_EQ(stream->read(bytes.data(), kPartSize + 1), static_cast<std::int64_t>(kPartSize + 1));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (m_client->count("getObject") < 5 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_EQ(m_client->count("getObject"), 5U) << "two were read, three fetched ahead";
    bytes.resize(1000);
    ASSERT_EQ(stream->read(bytes.data(), 1000), static_cast<std::int64_t>(7 * kPartSize - 1));
    stream->close();
    EXPECT_EQ(m_client->count("getObject"), 8U) << "each part once";
}

TEST_F(TransferTest, RandomReadsFetchNothingAhead) {
    m_options.readAheadParts = 3;
    startWith(2);
    m_client->storeParts(m_key, bytesOf(8), std::vector<std::uint64_t>(8, kPartSize));
    const auto stream = openForReading();
    char byte = 0;
    for (const std::size_t part : {5U, 1U, 6U, 2U}) {
        stream->seek(static_cast<std::streamoff>(part * kPartSize + 3), std::ios_base::beg);
        ASSERT_EQ(stream->read(&byte, 1), 1);
    }
    stream->close();
    EXPECT_EQ(m_client->count("getObject"), 4U);
}

TEST_F(TransferTest, AFailureReachesWhoeverComesNextAndIsMadeGood) {
    startWith(2);
    m_client->failOperation("uploadPart", 2, When::Before, CallControl::Repeat::Forever);
    const auto stream = openFile(replace());
    // At the latest when there is no more room for parts to wait.
    EXPECT_EQ(errorCodeOf([&] { write(stream, bytesOf(12)); }), ErrorCode::Unknown);
    EXPECT_EQ(errorCodeOf([&] { storeStream(*stream); }), ErrorCode::Unknown);
    m_client->clearFaults();
    stream->seek(0, std::ios_base::beg);
    write(stream, bytesOf(12));
    stream->close();
    EXPECT_EQ(m_client->content(m_key), bytesOf(12));
}

TEST_F(TransferTest, AFileWhoseStoreHangsStopsNoOther) {
    startWith(2);
    auto& gate = m_client->gate("uploadPart", m_key);
    const auto hanging = openFile(replace());
    auto writing = std::async(std::launch::async, [&] {
        write(hanging, bytesOf(6));
        hanging->close();
    });
    ASSERT_TRUE(gate.waitForArrivals(3)) << "both threads and the writer";
    const auto other = m_provider->openStream(IRI(u"/other"), replace());
    write(other, bytesOf(6));
    other->close();
    EXPECT_EQ(m_client->content("other"), bytesOf(6));
    gate.open();
    writing.get();
    EXPECT_EQ(m_client->content(m_key), bytesOf(6));
}

// The transfer runs in a thread of the pool, and hangs there; who waits for it is interrupted all the same.
TEST_F(TransferTest, AnInterruptReachesThoseWhoWaitForATransfer) {
    startWith(1);
    m_client->storeParts(m_key, bytesOf(2), {kPartSize, kPartSize});
    auto& gate = m_client->gate("uploadPart");
    const auto stream = openFile(update());
    write(stream, "x");
    stream->seek(kPartSize, std::ios_base::beg);  // hands the first part to the pool
    ASSERT_TRUE(gate.waitForArrivals());
    {
        const ScopedMainContext context;
        foundation::utInterruptState::RequestInterrupt();
        EXPECT_EQ(errorCodeOf([&] { storeStream(*stream); }), ErrorCode::Unknown);
    }
    const auto source = std::make_shared<foundation::InterruptSource>();
    source->request();
    {
        const foundation::InterruptScope scope(source);
        EXPECT_EQ(errorCodeOf([&] { storeStream(*stream); }), ErrorCode::Unknown);
    }
    gate.open();
    stream->close();
    EXPECT_EQ(m_client->content(m_key), "x" + bytesOf(2).substr(1));
}

TEST_F(TransferTest, AProviderMayGoWhileItsFilesAreStillSent) {
    startWith(2);
    auto& gate = m_client->gate("uploadPart");
    auto stream = openFile(replace());
    auto writing = std::async(std::launch::async, [&] { write(stream, bytesOf(9)); });
    ASSERT_TRUE(gate.waitForArrivals(3)) << "both threads and the writer; more are queued";
    m_provider.reset();
    m_providersClient.reset();
    gate.open();
    writing.get();
    stream.reset();  // which closes it
    EXPECT_EQ(m_client->content(m_key), bytesOf(9));
}

// Once the source has gone there is no way back: what waits for the pool then looks at no interrupt.
TEST_F(TransferTest, AnInterruptAtTheEndOfAMoveLosesNothing) {
    startWith(2);
    m_client->storeParts("folder/source", bytesOf(3), std::vector<std::uint64_t>(3, kPartSize));
    TraceGate gate("MultipartUploadManager::uploadPart");
    auto moving = std::async(std::launch::async, [&] {
        const ScopedMainContext context;
        m_provider->moveFile(IRI(u"/folder/source"), m_file, ReplacementPolicy::Replace);
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (m_client->count("deleteObject") == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    foundation::utInterruptState::RequestInterrupt();
    std::this_thread::sleep_for(std::chrono::milliseconds(250));  // longer than waits go without a look
    gate.open();
    EXPECT_EQ(errorCodeOf([&] { moving.get(); }), std::nullopt);
    EXPECT_EQ(m_client->content(m_key), bytesOf(3));
}

// Whoever lets a provider go right after its last transfer may do so before the thread that made it has come back.
TEST_F(TransferTest, NoThreadOfThePoolJoinsItself) {
    for (int round = 0; round < 1000; ++round) {
        startWith(4);
        auto stream = openSequentialWriter(*m_provider, m_file);
        write(stream, bytesOf(4) + "x");
        EXPECT_TRUE(abandonStream(*stream));
        stream.reset();
        m_provider.reset();
    }
}

// Objects that are destroyed when the process ends may hold streams; whose they are has gone by then.
TEST_F(TransferTest, StreamsOfStaticObjectsAreStoredWhenTheProcessEnds) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    struct Witness {
        std::shared_ptr<FakeCloudClient> client;
        boost::filesystem::path temporaryFolder;
        Witness() = default;
        Witness(const Witness&) = delete;
        Witness& operator=(const Witness&) = delete;
        ~Witness() {
            const bool isClean = boost::filesystem::remove(temporaryFolder);  // only an empty one goes
            std::_Exit(isClean && client->content("folder/file") == bytesOf(6) ? 0 : 1);
        }
    };
    const auto endTheProcess = [this] {
        m_options.readAheadParts = 2;
        startWith(2);
        static Witness witness;
        static Stream stream;
        witness.client = m_client;
        witness.temporaryFolder = m_folder.path();
        stream = openFile(replace());
        write(stream, bytesOf(6));
        m_provider.reset();
        m_providersClient.reset();
        std::exit(2);
    };
    EXPECT_EXIT(endTheProcess(), testing::ExitedWithCode(0), "");
}

TEST_F(TransferTest, OpenersStorersAndAbandonersMayAllBeAtWork) {
    constexpr int kRounds = 40;
    m_options.readAheadParts = 3;
    startWith(2);
    m_client->storeParts(m_key, bytesOf(6), std::vector<std::uint64_t>(6, kPartSize));
    const auto isWhole = [](const std::string& bytes) {
        auto expected = bytesOf(6);
        return bytes.size() == expected.size() && bytes.substr(1) == expected.substr(1);
    };
    const auto reader = [&] {
        for (int round = 0; round < kRounds; ++round) {
            EXPECT_TRUE(isWhole(readAll(openForReading())));
        }
    };
    const auto writer = [&](char byte, const auto& finish) {
        for (int round = 0; round < kRounds; ++round) {
            const auto stream = openFile(update());
            write(stream, std::string(1, byte));
            finish(*stream);
        }
    };
    auto opening = std::async(std::launch::async, reader);
    auto storing = std::async(std::launch::async, [&] { writer('S', storeStream); });
    auto abandoning = std::async(std::launch::async, [&] { writer('A', abandonStream); });
    opening.get();
    storing.get();
    abandoning.get();
    EXPECT_TRUE(isWhole(m_client->content(m_key).value()));
    EXPECT_FALSE(isOpen());
}

TEST_F(TransferTest, AbandoningWaitsForWhatIsOnItsWayAndLeavesNothing) {
    startWith(2);
    auto& gate = m_client->gate("uploadPart");
    const auto stream = openFile(replace());
    write(stream, bytesOf(3));
    ASSERT_TRUE(gate.waitForArrivals());
    auto abandoning = std::async(std::launch::async, [&] { return abandonStream(*stream); });
    EXPECT_EQ(abandoning.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    gate.open();
    EXPECT_TRUE(abandoning.get());
    EXPECT_EQ(m_client->openUploads(), 0U);
    EXPECT_FALSE(m_client->content(m_key));
}

}  // namespace storage::cloudprovider::test
