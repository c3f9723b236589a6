// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"
#include "TraceGate.hpp"

#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/storeStream.hpp>

#include <thread>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ErrorCode;

class StoreStreamTest : public EngineTest {};

TEST_F(StoreStreamTest, EveryStreamThatWritesStoresAndGoesOn) {
    const auto with = [](Options::Access access, Options::WriteMode mode) {
        return Options{access, Options::ExistingContent::Preserve, Options::Presence::Optional, mode};
    };
    const Options rows[] = {with(Options::Access::ReadWrite, Options::WriteMode::Positioned),
                            with(Options::Access::WriteOnly, Options::WriteMode::Positioned),
                            with(Options::Access::WriteOnly, Options::WriteMode::Append)};
    for (const bool tellsVersions : {false, true}) {
        for (const auto& options : rows) {
            std::string expected;
            startAnew(tellsVersions);
            const auto stream = openFile(options);
            for (const std::size_t count : {3U, 8U, 1U, 30U, 5U}) {
                const std::string bytes(count, static_cast<char>('a' + expected.size() % 26));
                write(stream, bytes);
                expected += bytes;
                storeStream(*stream);
                EXPECT_EQ(m_client->content(m_key), expected);
                EXPECT_EQ(m_client->openUploads(), 0U);
            }
            m_client->clearCalls();
            storeStream(*stream);
            stream->close();
            EXPECT_EQ(m_client->callCount(), 0U) << "nothing has changed since";
            EXPECT_EQ(readAll(openForReading()), expected);
        }
    }
}

// Whether the store has it can only be asked later: until then its version is not somebody else's.
TEST_F(StoreStreamTest, ReadingGoesOnAfterAStoreOfWhichNobodyToldHowItEnded) {
    for (const bool isStored : {true, false}) {
        for (const bool isReplaced : {false, true}) {
            SCOPED_TRACE(testing::Message()
                         << (isStored ? "stored" : "not stored") << (isReplaced ? ", replaced" : ""));
            startAnew(true);
            allowViolations();  // an upload is given up that may have been completed
            m_client->storeParts(m_key, "0123456789abcdef01234567", {8, 8, 8});
            const auto stream = openFile(update());
            write(stream, "XY");
            m_client->failOperation("completeUploadOver", 1,
                                    isStored ? CallControl::When::After : CallControl::When::Before);
            m_client->failOperation("describeObject");
            EXPECT_EQ(errorCodeOf([&] { storeStream(*stream); }), ErrorCode::Unknown);
            if (isReplaced) {
                m_client->store(m_key, "what somebody else has stored");
            }
            stream->seek(8, std::ios_base::beg);
            char byte = 0;
            const auto read = [&] { stream->read(&byte, 1); };
            if (isReplaced) {
                EXPECT_EQ(errorCodeOf(read), ErrorCode::InUse);
                EXPECT_EQ(errorCodeOf([&] { stream->close(); }), ErrorCode::InUse);
                continue;
            }
            ASSERT_NO_THROW(read());
            EXPECT_EQ(byte, '8');
            EXPECT_TRUE(isOpen());
            stream->close();
            EXPECT_EQ(m_client->content(m_key), "XY23456789abcdef01234567");
        }
    }
}

TEST_F(StoreStreamTest, WhatCannotStoreSaysSo) {
    m_client->store(m_key, "old");
    const auto stream = openFile(update());
    const auto reader = openForReading();
    write(stream, "new");
    storeStream(*reader);
    EXPECT_EQ(m_client->content(m_key), "old") << "a reader stores nothing";
    storeStream(*stream);
    EXPECT_EQ(m_client->content(m_key), "new");
    for (const auto* closed : {&stream, &reader}) {
        (*closed)->close();
        EXPECT_EQ(errorCodeOf([&] { storeStream(**closed); }), ErrorCode::Unknown);
    }
    class ForeignStream : public ByteStream {
        std::int64_t doRead(char*, std::int64_t) override { return -1; }
        std::int64_t doWrite(const char*, std::int64_t) override { return -1; }
        std::streampos doSeek(std::int64_t, std::ios_base::seekdir) override { return 0; }
        void doClose() override {}
    } foreign;
    EXPECT_EQ(errorCodeOf([&] { storeStream(foreign); }), ErrorCode::Unsupported);
}

// The store has to be told from what may change: with room for the bytes, also where files have no more than they need.
TEST_F(StoreStreamTest, AFileOfOnePartIsStoredFromACopy) {
    m_options.lightBuffers = true;
    startAnew(true);
    m_client->store(m_key, "old");
    const auto stream = openFile(update());
    write(stream, "longer");
    storeStream(*stream);
    EXPECT_EQ(m_client->content(m_key), "longer");
}

TEST_F(StoreStreamTest, ADiscardedFileIsStoredEmpty) {
    m_client->store(m_key, "old");
    const auto stream = openFile(replace());
    storeStream(*stream);
    EXPECT_EQ(m_client->content(m_key), "");
}

TEST_F(StoreStreamTest, AbandoningGivesUpOnlyWhatCameLater) {
    for (const bool isLarge : {false, true}) {
        startAnew(isLarge);
        const std::string stored(isLarge ? 20 : 4, 's');
        const auto stream = openFile(replace());
        write(stream, stored);
        storeStream(*stream);
        stream->seek(0, std::ios_base::beg);
        write(stream, std::string(30, 'x'));
        EXPECT_TRUE(abandonStream(*stream));
        EXPECT_EQ(m_client->content(m_key), stored);
    }
}

TEST_F(StoreStreamTest, AFailureLeavesTheOldObjectAndMayBeTriedAgain) {
    for (const char* const operation : {"startMultipartUpload", "uploadPart", "copyPart", "completeMultipartUpload"}) {
        SCOPED_TRACE(operation);
        startAnew();
        m_client->storeParts(m_key, "0123456789abcdefghi", {8, 8, 3});
        const auto stream = openFile(update());
        write(stream, "X");
        m_client->failOperation(operation, 1, CallControl::When::Before, CallControl::Repeat::Forever);
        EXPECT_EQ(errorCodeOf([&] { storeStream(*stream); }), ErrorCode::Unknown);
        EXPECT_EQ(m_client->content(m_key), "0123456789abcdefghi");
        m_client->clearFaults();
        storeStream(*stream);
        EXPECT_EQ(m_client->content(m_key), "X123456789abcdefghi");
    }
}

// A writer is in the middle of making the last part grow while the file is stored.
TEST_F(StoreStreamTest, AWriteInProgressIsStoredNowOrWithTheNextStore) {
    struct Row {
        const char* name;
        const char* heldBefore;  // the step of the writer
        std::string stored;
    };
    const Row rows[] = {{"before it grows", "OpenPartBuffer::increaseSize(", ""},
                        {"before its bytes are marked", "OpenPartBuffer::markModified(", "now"}};
    for (const auto& row : rows) {
        for (const bool isLarge : {false, true}) {
            SCOPED_TRACE(std::string(row.name) + (isLarge ? ", large" : ", small"));
            startAnew(true);
            const std::string before(isLarge ? 10 : 2, 'b');
            const auto storer = openFile(update());
            const auto writer = openFile(update(Options::WriteMode::Append));
            write(writer, before);
            storeStream(*storer);
            TraceGate inWrite(row.heldBefore);
            std::thread writing([&] { write(writer, "now"); });
            ASSERT_TRUE(inWrite.waitForArrival());
            storeStream(*storer);
            EXPECT_EQ(m_client->content(m_key), before + row.stored);
            inWrite.open();
            writing.join();
            storeStream(*storer);
            EXPECT_EQ(m_client->content(m_key), before + "now");
            write(writer, "!");
            writer->close();
            EXPECT_EQ(m_client->content(m_key), before + "now");
            storer->close();
            EXPECT_EQ(m_client->content(m_key), before + "now!");
        }
    }
}

// The record of a part was taken when its sending began: what is sent may be the old bytes or the new ones, but never
// more of them.
TEST_F(StoreStreamTest, APartThatGrowsWhileItIsSentIsStoredAsItWas) {
    for (const bool isLarge : {false, true}) {
        SCOPED_TRACE(isLarge);
        startAnew(isLarge);
        const std::string before(isLarge ? 10 : 2, 'b');
        const auto storer = openFile(update());
        const auto writer = openFile(update(Options::WriteMode::Append));
        write(writer, before.substr(1));
        storeStream(*storer);
        write(writer, before.substr(0, 1));  // only the last part is left to send
        TraceGate inWrite("OpenPartBuffer::increaseSize(");
        std::thread writing([&] { write(writer, "abc"); });
        ASSERT_TRUE(inWrite.waitForArrival());
        auto& inStore = m_client->gate(isLarge ? "uploadPart" : "putObject");
        std::thread storing([&] { storeStream(*storer); });
        ASSERT_TRUE(inStore.waitForArrivals());
        inWrite.open();
        writing.join();
        inStore.open();
        storing.join();
        EXPECT_EQ(m_client->content(m_key), before);
        storer->close();
        writer->close();
        EXPECT_EQ(m_client->content(m_key), before + "abc");
    }
}

// The second part is to be copied by the store when somebody changes it.
TEST_F(StoreStreamTest, APartThatIsChangedBeforeItIsReusedIsSent) {
    m_client->storeParts(m_key, "0123456789abcdefghi", {8, 8, 3});
    const auto storer = openFile(update());
    const auto writer = openFile(update());
    write(storer, "X");
    writer->seek(8, std::ios_base::beg);
    TraceGate inWrite("OpenPartBuffer::increaseSize(");
    std::thread writing([&] { write(writer, "Y"); });
    ASSERT_TRUE(inWrite.waitForArrival());
    auto& inStore = m_client->gate("uploadPart");
    std::thread storing([&] { storeStream(*storer); });
    ASSERT_TRUE(inStore.waitForArrivals());
    inWrite.open();
    writing.join();
    inStore.open();
    storing.join();
    EXPECT_EQ(m_client->content(m_key), "X1234567Y9abcdefghi");
}

// What was sent of a part before it changed must not be stored in place of what fails to be sent now.
TEST_F(StoreStreamTest, AFailureBesideAWriteDoesNotBringOldBytesBack) {
    for (const std::string failing : {"uploadPart", "startMultipartUpload"}) {
        SCOPED_TRACE(failing);
        startAnew();
        m_client->storeParts(m_key, "0123456789abcdefghi", {8, 8, 3});
        const auto storer = openFile(update());
        const auto writer = openFile(update());
        write(storer, "X");
        if (failing == "uploadPart") {
            storer->seek(16, std::ios_base::beg);  // the first part is sent
            storer->seek(0, std::ios_base::beg);
        }
        write(storer, "YY");
        const auto at = storer->seek(0, std::ios_base::cur);
        writer->seek(at, std::ios_base::beg);
        TraceGate inWrite("OpenPartBuffer::increaseSize(");
        std::thread writing([&] { write(writer, "Z"); });
        ASSERT_TRUE(inWrite.waitForArrival());
        auto& inStore = m_client->gate(failing);
        m_client->failOperation(failing);
        std::thread storing([&] { storeStream(*storer); });
        ASSERT_TRUE(inStore.waitForArrivals());
        inWrite.open();
        writing.join();
        inStore.open();
        storing.join();
        EXPECT_EQ(m_client->content(m_key), at == 2 ? "YYZ3456789abcdefghi" : "XYYZ456789abcdefghi");
    }
}

}  // namespace storage::cloudprovider::test
