// SPDX-License-Identifier: Apache-2.0
#include "AllocationFaults.hpp"
#include "EngineTest.hpp"
#include "openfile/OpenFileManager.hpp"
#include "support/tuning.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/testing/VersionedFakeClient.hpp>

#include <boost/numeric/conversion/cast.hpp>

#include <atomic>
#include <chrono>
#include <future>
#include <limits>
#include <thread>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ByteStreamCloseFailure;
using foundation::storage::provider::ByteStreamReadFailure;
using foundation::storage::provider::ByteStreamSeekFailure;
using foundation::storage::provider::ByteStreamWriteFailure;
using foundation::storage::provider::ErrorCode;

class StreamTest : public EngineTest {
protected:
    // Four parts, the last one of 3 bytes.
    const std::string m_content = "0123456789abcdefghijklmnopq";

    void storeFourParts() { m_client->storeParts(m_key, m_content, {8, 8, 8, 3}); }
};

TEST_F(StreamTest, AChangeMovesOnePartAndTheStoreCopiesTheOthers) {
    struct Row {
        const char* name;
        std::int64_t at;
        std::size_t downloads;
        std::size_t uploads;
        std::size_t copies;
    };
    const Row rows[] = {
        {"overwrite in the middle", 9, 1, 1, 3}, {"append in the last part", 27, 1, 1, 3}, {"first byte", 0, 1, 1, 3}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        storeFourParts();
        m_client->clearCalls();
        const auto stream = openFile(update());
        stream->seek(row.at, std::ios_base::beg);
        write(stream, "X");
        stream->close();
        EXPECT_EQ(m_client->count("getObject"), row.downloads);
        EXPECT_EQ(m_client->count("uploadPart"), row.uploads);
        EXPECT_EQ(m_client->count("copyPart"), row.copies);
        auto expected = m_content;
        expected.resize(std::max<std::size_t>(expected.size(), static_cast<std::size_t>(row.at) + 1));
        expected[static_cast<std::size_t>(row.at)] = 'X';
        EXPECT_EQ(m_client->content(m_key), expected);
    }
}

TEST_F(StreamTest, WhatIsNotChangedIsNotStored) {
    storeFourParts();
    {
        const auto stream = openFile(update());
        EXPECT_EQ(readAll(stream), m_content);
        EXPECT_EQ(stream->write("", 0), -1);
    }
    EXPECT_EQ(m_client->count("startMultipartUpload") + m_client->count("putObject"), 0U);
}

TEST_F(StreamTest, SeekingFollowsTheRulesAtTheEdges) {
    storeFourParts();
    const auto stream = openFile(update(Options::WriteMode::Append));
    char byte = 0;
    constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(stream->seek(-100, std::ios_base::end), std::streampos(0));
    EXPECT_EQ(stream->seek(100, std::ios_base::end), std::streampos(127));
    EXPECT_EQ(stream->read(&byte, 1), -1) << "behind the end";
    EXPECT_EQ(stream->seek(kMost, std::ios_base::beg), std::streampos(kMost));
    EXPECT_THROW(stream->seek(1, std::ios_base::cur), boost::numeric::positive_overflow);
    EXPECT_THROW(stream->seek(std::numeric_limits<std::int64_t>::min(), std::ios_base::cur),
                 boost::numeric::negative_overflow);
    EXPECT_EQ(stream->seek(0, std::ios_base::cur), std::streampos(kMost)) << "a refused seek does not move";
    EXPECT_THROW(stream->read(&byte, -1), boost::numeric::negative_overflow);
    EXPECT_THROW(stream->write(&byte, -1), boost::numeric::negative_overflow);
    stream->seek(0, std::ios_base::beg);
    write(stream, "end");
    EXPECT_EQ(stream->seek(0, std::ios_base::cur), std::streampos(30)) << "appending moves to the end";
    stream->close();
    EXPECT_EQ(m_client->content(m_key), m_content + "end");
}

TEST_F(StreamTest, AClosedStreamFailsInsteadOfCrashing) {
    const auto stream = openFile(replace());
    stream->close();
    stream->close();
    char byte = 0;
    EXPECT_THROW(stream->read(&byte, 1), ByteStreamReadFailure);
    EXPECT_THROW(stream->write(&byte, 1), ByteStreamWriteFailure);
    EXPECT_THROW(stream->seek(0, std::ios_base::beg), ByteStreamSeekFailure);
    EXPECT_EQ(m_client->content(m_key), "") << "an empty file was asked for";
}

TEST_F(StreamTest, StreamsOfOneObjectShareItAndTheLastOneStoresIt) {
    m_client->store(m_key, "old");
    auto first = openFile(replace());
    write(first, "shared content");
    const auto second = m_provider->openStream(IRI(u"store://bucket//folder/./file/"), replace());
    EXPECT_EQ(readAll(second), "shared content") << "the second one's options do not count";
    first->close();
    EXPECT_EQ(m_client->content(m_key), "old");
    EXPECT_TRUE(isOpen());
    second->close();
    EXPECT_EQ(m_client->content(m_key), "shared content");
    EXPECT_FALSE(isOpen());

    // The same identifier in another store is another object.
    const auto elsewhere = std::make_shared<FakeCloudClient>();
    const auto open = openForReading();
    EXPECT_FALSE(OpenFileManager::instance().isOpen(m_file, elsewhere));
}

TEST_F(StreamTest, PresenceDecidesWhatAnAbsentObjectMeans) {
    EXPECT_EQ(errorCodeOf([&] { openForReading(); }), ErrorCode::NotFound);
    auto options = update();
    options.presence = Options::Presence::Required;
    EXPECT_EQ(errorCodeOf([&] { openFile(options); }), ErrorCode::NotFound);
    options.existingContent = Options::ExistingContent::Discard;
    EXPECT_EQ(errorCodeOf([&] { openFile(options); }), ErrorCode::NotFound);
    openFile(update());
    EXPECT_TRUE(m_client->keys().empty()) << "opened, but nothing written";
    write(openFile(update(Options::WriteMode::Append)), "made");
    EXPECT_EQ(m_client->content(m_key), "made");
    for (const auto& root : {IRI(u"/"), IRI(), IRI(u"x://y")}) {
        m_client->clearCalls();
        EXPECT_EQ(errorCodeOf([&] { m_provider->openStream(root, replace()); }), ErrorCode::NotFound);
        EXPECT_EQ(m_client->callCount(), 0U);
    }
    EXPECT_EQ(errorCodeOf([&] { m_provider->openStream(IRI(u"/\xD800"), replace()); }), ErrorCode::InvalidLocation);
    EXPECT_EQ(m_client->callCount(), 0U);
}

TEST_F(StreamTest, PartsThatDoNotFollowEachOtherAreRefused) {
    constexpr auto kHuge = std::numeric_limits<std::uint64_t>::max();
    const std::pair<const char*, std::vector<PartInfo>> rows[] = {{"gap", {{0, 0, 8, ""}, {1, 9, 8, ""}}},
                                                                  {"overlap", {{0, 0, 8, ""}, {1, 7, 8, ""}}},
                                                                  {"not from 0", {{0, 1, 8, ""}}},
                                                                  {"overflow", {{0, 0, 8, ""}, {1, 8, kHuge, ""}}},
                                                                  {"twice", {{0, 0, 8, ""}, {1, 0, 8, ""}}}};
    m_client->store(m_key, m_content);
    for (const auto& [name, parts] : rows) {
        SCOPED_TRACE(name);
        m_client->reportParts(m_key, parts);
        EXPECT_EQ(errorCodeOf([&] { openForReading(); }), ErrorCode::Unknown);
        EXPECT_FALSE(isOpen());
    }
    m_client->reportParts(m_key, {{7, 8, 19, "b"}, {3, 0, 8, "a"}});  // only out of order
    EXPECT_EQ(readAll(openForReading()), m_content);

    class Partless : public VersionedFakeClient {
    public:
        using VersionedFakeClient::VersionedFakeClient;
        std::optional<ObjectDescription> describeObject(const std::string&) override { return ObjectDescription(); }
    };
    const auto provider = buildCloudProvider(std::make_shared<Partless>(m_client), FolderPolicy::MarkerObjects, false);
    EXPECT_EQ(readAll(provider->openReadOnlyStream(m_file)), "") << "no parts: an empty object";
}

TEST_F(StreamTest, ASmallFileComesInOneRequestWhereTheStoreSendsItsStart) {
    m_storeOptions.sendsStarts = true;
    startAnew(true);
    for (const std::size_t size : {0U, 1U, 8U, 70'000U}) {
        const auto content = std::string(size, 'c');
        m_client->store(m_key, content);
        m_client->clearCalls();
        const auto stream = openForReading();
        m_client->store(m_key, "replaced");
        if (size == 70'000) {
            EXPECT_EQ(errorCodeOf([&] { readAll(stream); }), ErrorCode::InUse)
                << "of a large one only the size is there";
        } else {
            EXPECT_EQ(readAll(stream), content);
            EXPECT_EQ(m_client->callCount(), 1U);
        }
    }
    const ScopedVariable noCache("VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE", "0");
    m_client->store(m_key, m_content);
    EXPECT_EQ(readAll(openForReading()), m_content) << "where nothing is kept, it is fetched again";
}

TEST_F(StreamTest, AWriteFarBehindTheEndIsRefusedBeforeAnythingChanges) {
    m_client->store(m_key, "small");
    {
        const auto stream = openFile(update());
        stream->seek(static_cast<std::int64_t>(kMaxPartCount * kPartSize), std::ios_base::beg);
        EXPECT_EQ(errorCodeOf([&] { stream->write("x", 1); }), ErrorCode::Unsupported);
        EXPECT_EQ(stream->seek(0, std::ios_base::end), std::streampos(5));
    }
    EXPECT_EQ(m_client->content(m_key), "small");
}

TEST_F(StreamTest, AWriteThatFindsNoMemoryDoesNotLengthenTheFile) {
    allowLeftDescriptors();
    bool hasFailed = true;
    for (std::size_t nth = 1; hasFailed; ++nth) {
        SCOPED_TRACE(nth);
        m_client->store(m_key, "small");
        const auto stream = openFile(update());
        stream->seek(3 * kPartSize, std::ios_base::beg);
        AllocationFaults::failNth(nth);
        const bool isWritten = !errorCodeOf([&] { stream->write("x", 1); });
        hasFailed = AllocationFaults::hasFailed();
        AllocationFaults::reset();
        EXPECT_EQ(stream->seek(0, std::ios_base::end), std::streampos(isWritten ? 3 * kPartSize + 1 : 5));
    }
}

TEST_F(StreamTest, ClosedPartsAreReadAgainFromTheCacheUpToItsLimit) {
    const std::pair<std::uint64_t, std::size_t> rows[] = {{0, 8}, {2 * kPartSize, 8}, {4 * kPartSize, 4}};
    storeFourParts();
    for (const auto& [limit, downloads] : rows) {
        SCOPED_TRACE(limit);
        const ScopedVariable cache("VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE", std::to_string(limit));
        m_client->clearCalls();
        const auto stream = openForReading();
        EXPECT_EQ(readAll(stream), m_content);
        EXPECT_LE(m_folder.fileCount(), limit / kPartSize);
        EXPECT_EQ(readAll(stream), m_content);
        EXPECT_EQ(m_client->count("getObject"), downloads);
    }
}

TEST_F(StreamTest, OpenersWaitForTheOneThatAsksTheStore) {
    storeFourParts();
    auto& gate = m_client->gate("getObjectParts");
    m_client->failOperation("getObjectParts");
    std::thread first([&] { EXPECT_EQ(errorCodeOf([&] { openForReading(); }), ErrorCode::Unknown); });
    ASSERT_TRUE(gate.waitForArrivals());
    EXPECT_TRUE(isOpen());
    std::thread second([&] { EXPECT_EQ(readAll(openForReading()), m_content); });
    gate.open();
    first.join();
    second.join();
    EXPECT_EQ(m_client->count("getObjectParts"), 2U);
}

TEST_F(StreamTest, APartChangedWhileItIsSentIsSentAgain) {
    auto& gate = m_client->gate("uploadPart");
    auto first = openFile(replace());
    const auto second = openFile(update());
    write(first, "0123456789abcdef");
    std::thread sender([&] { write(first, "gh"); });  // leaves the second part, which is sent
    ASSERT_TRUE(gate.waitForArrivals());
    second->seek(8, std::ios_base::beg);
    write(second, "XX");
    gate.open();
    sender.join();
    first->close();
    second->close();
    EXPECT_EQ(m_client->content(m_key), "01234567XXabcdefgh");
}

// The one race of the engine that is allowed: bytes change under an upload, which is repeated.
TEST_F(StreamTest, BytesMayChangeUnderTheUploadThatReadsThem) {
    constexpr std::size_t kLargePart = 1 << 20;
    const ScopedVariable partSize("VX_CLOUD_PART_SIZE_OVERRIDE", std::to_string(kLargePart));
    const std::string changed(kLargePart / 4, 'b');
    auto first = openFile(replace());
    const auto second = openFile(update());
    write(first, std::string(2 * kLargePart, 'a'));
    std::atomic<bool> isSent{false};
    std::thread sender([&] {
        write(first, "x");  // leaves the second part, which is sent
        isSent = true;
    });
    do {
        second->seek(kLargePart, std::ios_base::beg);
        write(second, changed);
    } while (!isSent);
    sender.join();
    first->close();
    second->close();
    EXPECT_EQ(m_client->content(m_key),
              std::string(kLargePart, 'a') + changed + std::string(kLargePart - changed.size(), 'a') + "x");
}

TEST_F(StreamTest, AnOpenerDuringTheWriteBackFindsWhatWasStored) {
    auto& gate = m_client->gate("putObject");
    std::thread writer([&] { write(openFile(replace()), "stored"); });
    ASSERT_TRUE(gate.waitForArrivals());
    auto opener = std::async(std::launch::async, [&] { return openFile(update(Options::WriteMode::Append)); });
    EXPECT_EQ(opener.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout)
        << "opened before it is known";
    gate.open();
    writer.join();
    const auto stream = opener.get();
    EXPECT_EQ(readAll(stream), "stored");
    stream->seek(0, std::ios_base::beg);
    write(stream, " and more");
    stream->close();
    EXPECT_EQ(m_client->content(m_key), "stored and more");
}

TEST_F(StreamTest, AFailedWriteBackIsReportedByClose) {
    m_client->store(m_key, "old");
    m_client->setFault([] { throw PermissionDeniedException(); });
    m_client->failOperation("putObject");
    const auto stream = openFile(replace());
    write(stream, "new");
    try {
        stream->close();
        ADD_FAILURE() << "closing succeeded";
    } catch (const ByteStreamCloseFailure& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::PermissionDenied);
    }
    EXPECT_EQ(m_client->content(m_key), "old");
    EXPECT_FALSE(isOpen());
}

TEST_F(StreamTest, AbandonedChangesAreNotStored) {
    storeFourParts();
    const auto stream = openFile(replace());
    write(stream, std::string(3 * kPartSize, 'x'));
    {
        const auto other = openForReading();
        EXPECT_FALSE(abandonStream(*stream)) << "the other stream shares the changes";
    }
    openFile(update())->close();  // wrote nothing
    EXPECT_TRUE(abandonStream(*stream));
    EXPECT_THROW(stream->write("x", 1), ByteStreamWriteFailure);
    EXPECT_EQ(m_client->content(m_key), m_content);
    EXPECT_FALSE(isOpen());
}

TEST_F(StreamTest, ChangesThatAnotherStreamClosedWithAreNotAbandoned) {
    const auto stream = openFile(replace());
    write(openFile(update()), "counted on");
    EXPECT_FALSE(abandonStream(*stream));
    stream->close();
    EXPECT_EQ(m_client->content(m_key), "counted on");
}

TEST_F(StreamTest, AnOperationThatFailsHalfWayCanBeTriedAgain) {
    storeFourParts();
    const auto stream = openFile(update());
    std::string buffer(m_content.size(), '?');
    const auto size = static_cast<std::int64_t>(buffer.size());
    m_client->failOperation("getObject", 3);
    EXPECT_THROW(stream->read(buffer.data(), size), ByteStreamReadFailure);
    EXPECT_EQ(stream->read(buffer.data(), size), size);
    EXPECT_EQ(buffer, m_content);

    stream->seek(0, std::ios_base::beg);
    const std::string changed(20, 'X');
    m_client->failOperation("uploadPart", 2);
    EXPECT_THROW(stream->write(changed.data(), 20), ByteStreamWriteFailure);
    write(stream, changed);
    stream->close();
    EXPECT_EQ(m_client->content(m_key), changed + m_content.substr(20));
}

}  // namespace storage::cloudprovider::test
