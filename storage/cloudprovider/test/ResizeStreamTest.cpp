// SPDX-License-Identifier: Apache-2.0
#include "AllocationFaults.hpp"
#include "EngineTest.hpp"
#include "TraceGate.hpp"

#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/detachStream.hpp>
#include <storage/cloudprovider/openSequentialWriter.hpp>
#include <storage/cloudprovider/resizeStream.hpp>
#include <storage/cloudprovider/storeStream.hpp>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ErrorCode;

class ResizeStreamTest : public EngineTest {
protected:
    void storeFourParts() { m_client->storeParts(m_key, m_content, {8, 8, 8, 3}); }

    // What the content becomes.
    std::string resized(std::uint64_t size) const {
        auto bytes = m_content;
        bytes.resize(size, '\0');
        return bytes;
    }

    static void writeAt(const Stream& stream, std::int64_t offset, const std::string& bytes) {
        stream->seek(offset, std::ios_base::beg);
        write(stream, bytes);
    }

    const std::string m_content = "0123456789abcdefghijklmnopq";
};

TEST_F(ResizeStreamTest, OnlyWhatChangesTravels) {
    struct Row {
        std::uint64_t size;
        std::size_t fetches;  // bytes of the part that changes
        std::vector<std::uint64_t> sent;
        std::size_t copies;
    };
    const Row rows[] = {{27, 0, {}, 0}, {24, 0, {}, 3},  {8, 0, {}, 1},   {13, 1, {5}, 1},         {5, 1, {5}, 0},
                        {0, 0, {0}, 0}, {30, 1, {6}, 3}, {32, 1, {8}, 3}, {50, 1, {8, 8, 8, 2}, 3}};
    for (const bool tellsVersions : {false, true}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(testing::Message() << row.size << (tellsVersions ? ", versions" : ", plain"));
            startAnew(tellsVersions);
            storeFourParts();
            const auto stream = openFile(update());
            m_client->clearCalls();
            resizeStream(*stream, row.size);
            EXPECT_EQ(m_client->callCount(), 0U);
            stream->close();
            EXPECT_EQ(m_client->content(m_key), resized(row.size));
            std::vector<std::uint64_t> sent;
            std::size_t copies = 0;
            for (const auto& call : m_client->calls()) {
                if (call.operation == "uploadPart" || call.operation.rfind("putObject", 0) == 0) {
                    sent.push_back(call.operation == "uploadPart" ? call.part.Size : call.size);
                }
                copies += call.operation == "copyRun" ? call.parts.size() : 0;
            }
            EXPECT_EQ(sent, row.sent);
            EXPECT_EQ(copies + m_client->count("copyPart"), row.copies);
            EXPECT_EQ(m_client->count("getObject") + m_client->count("getRange"), row.fetches);
        }
    }
}

TEST_F(ResizeStreamTest, AGapHasNoRoomOfItsOwn) {
    const auto stream = openFile(replace());
    write(stream, "x");
    resizeStream(*stream, 100 * kPartSize);
    EXPECT_EQ(m_folder.fileCount(), 1U);
    auto& gate = m_client->gate("completeMultipartUpload");
    auto storing = std::async(std::launch::async, [&] { storeStream(*stream); });
    EXPECT_TRUE(gate.waitForArrivals());
    EXPECT_EQ(m_folder.fileCount(), 1U) << "zeros stay on the disk";
    gate.open();
    storing.get();
    EXPECT_EQ(m_client->content(m_key), "x" + std::string(100 * kPartSize - 1, '\0'));
}

TEST_F(ResizeStreamTest, WhatCannotBeResizedOrLeaveItsNameSaysSo) {
    class ForeignStream : public ByteStream {
        std::int64_t doRead(char*, std::int64_t) override { return -1; }
        std::int64_t doWrite(const char*, std::int64_t) override { return -1; }
        std::streampos doSeek(std::int64_t, std::ios_base::seekdir) override { return 0; }
        void doClose() override {}
    };
    startAnew(true);
    m_client->store(m_key, "old");
    const auto closed = openFile(update());
    closed->close();
    const auto reader = openForReading();
    ForeignStream foreign;
    const auto sequential = openSequentialWriter(*m_provider, IRI(u"/sequential"));
    struct Row {
        const char* name;
        ByteStream& stream;
        std::optional<ErrorCode> resizing;
        std::optional<ErrorCode> leaving;
    };
    const Row rows[] = {{"closed", *closed, ErrorCode::Unknown, ErrorCode::Unknown},
                        {"foreign", foreign, ErrorCode::Unsupported, ErrorCode::Unsupported},
                        {"sequential", *sequential, ErrorCode::Unsupported, ErrorCode::Unsupported},
                        {"read only", *reader, ErrorCode::PermissionDenied, std::nullopt}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(errorCodeOf([&] { resizeStream(row.stream, 1); }), row.resizing);
        EXPECT_EQ(errorCodeOf([&] { detachStream(row.stream); }), row.leaving);
    }
    EXPECT_EQ(readAll(reader), "old");
}

TEST_F(ResizeStreamTest, AFailureLeavesTheFileAsItWas) {
    allowLeftDescriptors();
    const std::uint64_t sizes[] = {0, 4, 8, 13, 26, 30, 100};
    for (const auto size : sizes) {
        bool hasFailed = true;
        for (std::size_t nth = 1; hasFailed; ++nth) {
            SCOPED_TRACE(testing::Message() << size << ", allocation " << nth);
            startAnew(true);
            storeFourParts();
            const auto stream = openFile(update());
            writeAt(stream, 12, "XY");  // this part is changed, the first one is here, the others are not
            writeAt(stream, 0, "0");
            auto expected = m_content;
            expected.replace(12, 2, "XY");
            AllocationFaults::failNth(nth);
            const auto code = errorCodeOf([&] { resizeStream(*stream, size); });
            hasFailed = AllocationFaults::hasFailed();
            AllocationFaults::reset();
            EXPECT_TRUE(hasFailed || !code);
            if (!code) {
                expected.resize(size, '\0');
            }
            EXPECT_EQ(readAll(stream), expected);
            stream->close();
            EXPECT_EQ(m_client->content(m_key), expected);
        }
    }
}

// What is left of a part is fetched when it is needed: a failure is that operation's, which may be tried again.
TEST_F(ResizeStreamTest, AFetchThatFailsIsMadeGoodLater) {
    storeFourParts();
    const auto stream = openFile(update());
    resizeStream(*stream, 13);
    m_client->failOperation("getObject", 1, CallControl::When::Before, CallControl::Repeat::Forever);
    EXPECT_EQ(errorCodeOf([&] { storeStream(*stream); }), ErrorCode::Unknown);
    EXPECT_EQ(stream->seek(0, std::ios_base::end), std::streampos(13));
    EXPECT_EQ(m_client->content(m_key), m_content);
    m_client->clearFaults();
    storeStream(*stream);
    EXPECT_EQ(m_client->content(m_key), resized(13));
}

TEST_F(ResizeStreamTest, AStoreThatIsUnderWayStoresTheFormerSize) {
    for (const bool isLarge : {false, true}) {
        for (const std::uint64_t size : {0U, 2U, 12U, 40U}) {
            SCOPED_TRACE(testing::Message() << size << (isLarge ? ", large" : ", small"));
            startAnew(isLarge);
            auto expected = isLarge ? m_content : std::string("old");
            isLarge ? storeFourParts() : m_client->store(m_key, expected);
            const auto storer = openFile(update());
            const auto other = openFile(update());
            write(storer, "X");
            expected[0] = 'X';
            auto& gate = m_client->gate(isLarge ? "uploadPart" : "putObject");
            auto storing = std::async(std::launch::async, [&] { storeStream(*storer); });
            EXPECT_TRUE(gate.waitForArrivals());
            auto resizing = std::async(std::launch::async, [&] { resizeStream(*other, size); });
            EXPECT_NE(resizing.wait_for(std::chrono::milliseconds(20)), std::future_status::ready);
            gate.open();
            storing.get();
            EXPECT_EQ(m_client->content(m_key), expected);
            resizing.get();
            EXPECT_EQ(m_client->content(m_key), expected);
            other->close();
            storer->close();
            expected.resize(size, '\0');
            EXPECT_EQ(m_client->content(m_key), expected);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(ResizeStreamTest, OtherStreamsGiveAPartThatGoesBackAndGoOn) {
    char byte = 0;
    struct Row {
        const char* name;
        Options options;
        std::function<void(const Stream&)> goOn;
        std::string expected;
        bool leavesGap = false;
    };
    const auto append = update(Options::WriteMode::Append);
    const std::string left = "0123456789abc";
    const Row rows[] = {
        {"reads", update(), [&](const Stream& stream) { EXPECT_EQ(stream->read(&byte, 1), -1); }, left},
        {"writes", update(), [](const Stream& stream) { write(stream, "Z"); }, left, true},
        {"appends", append, [](const Stream& stream) { write(stream, "Z"); }, left + "Z"},
        {"is closed", update(), [](const Stream& stream) { stream->close(); }, left},
        {"writes in what is left", update(), [](const Stream& stream) { writeAt(stream, 12, "Z"); }, "0123456789abZ"},
    };
    for (const auto& row : rows) {
        for (const std::size_t held : {25U, 14U}) {  // in the last part, and in the one that is cut
            SCOPED_TRACE(testing::Message() << row.name << ' ' << held);
            startAnew(true);
            storeFourParts();
            const auto cutter = openFile(update());
            const auto other = openFile(row.options);
            other->seek(static_cast<std::streamoff>(held), std::ios_base::beg);
            EXPECT_EQ(other->read(&byte, 1), 1);
            resizeStream(*cutter, left.size());
            row.goOn(other);
            const auto expected = row.expected + (row.leavesGap ? std::string(held + 1 - left.size(), '\0') + "Z" : "");
            EXPECT_EQ(readAll(cutter), expected);
            cutter->close();
            other->close();
            EXPECT_EQ(m_client->content(m_key), expected);
            ASSERT_FALSE(HasFailure());
        }
    }
}

// The writer has looked at its part and is about to put its bytes there.
TEST_F(ResizeStreamTest, AWriteIsBeforeACutOrBehindIt) {
    for (const auto mode : {Options::WriteMode::Positioned, Options::WriteMode::Append}) {
        startAnew(true);
        const auto cutter = openFile(replace());
        const auto writer = openFile(update(mode));
        write(cutter, "01234");
        TraceGate inWrite("OpenPartBuffer::increaseSize(");
        auto writing = std::async(std::launch::async, [&] { write(writer, "XY"); });
        EXPECT_TRUE(inWrite.waitForArrival());
        auto resizing = std::async(std::launch::async, [&] { resizeStream(*cutter, 3); });
        EXPECT_NE(resizing.wait_for(std::chrono::milliseconds(20)), std::future_status::ready);
        inWrite.open();
        writing.get();
        resizing.get();
        EXPECT_EQ(readAll(cutter), mode == Options::WriteMode::Append ? "012" : "XY2");
    }
}

// The part may be anywhere when its end is cut off, and be on its way.
// Ceph's gateway refuses to complete an upload that was given more parts than are listed, and so does the fake.
TEST_F(ResizeStreamTest, AnUploadThatWasGivenPartsThatAreCutOffIsBegunAnew) {
    storeFourParts();
    const auto stream = openFile(update());
    writeAt(stream, 25, "XY");
    writeAt(stream, 0, "Z");  // the last part is sent
    ASSERT_EQ(m_client->count("uploadPart"), 1U);
    resizeStream(*stream, 13);
    stream->close();
    EXPECT_EQ(m_client->content(m_key), "Z" + m_content.substr(1, 12));
    EXPECT_EQ(m_client->count("abortMultipartUpload"), 1U);
}

TEST_F(ResizeStreamTest, WhatWasCutOffDoesNotComeBack) {
    const auto nothing = [](const Stream&) {};
    const auto leave = [](const Stream& stream) { stream->seek(0, std::ios_base::beg); };
    struct Row {
        const char* name;
        std::function<void(const Stream&)> before;
        const char* held;       // an operation of the store, while the file is resized
        bool isFailed = false;  // which fails then
    };
    const auto fetch = [](const Stream& stream) {
        char byte = 0;
        stream->seek(8, std::ios_base::beg);
        stream->read(&byte, 1);
    };
    const auto change = [](const Stream& stream) { writeAt(stream, 8, "89abcdef"); };
    const auto then = [&](auto first, auto second) {
        return [first, second](const Stream& stream) {
            first(stream);
            second(stream);
        };
    };
    const Row rows[] = {{"never fetched", nothing, nullptr},
                        {"fetched and held", fetch, nullptr},
                        {"fetched", then(fetch, leave), nullptr},
                        {"changed", change, nullptr},
                        {"sent", then(change, leave), nullptr},
                        {"stored", then(change, [](const Stream& stream) { storeStream(*stream); }), nullptr},
                        {"being sent", then(change, leave), "uploadPart"},
                        {"failing to be sent", then(change, leave), "uploadPart", true}};
    for (const auto& row : rows) {
        for (const std::uint64_t size : {0U, 8U, 11U}) {
            for (const std::uint64_t grown : {14U, 40U}) {
                SCOPED_TRACE(testing::Message() << row.name << ", " << size << ", " << grown);
                m_options.transferThreads = row.held != nullptr ? 1 : 0;
                startAnew(grown == 14);
                storeFourParts();
                const auto stream = openFile(update());
                auto* const gate = row.held != nullptr ? &m_client->gate(row.held) : nullptr;
                if (row.isFailed) {
                    m_client->failOperation(row.held);
                }
                row.before(stream);
                ASSERT_TRUE(gate == nullptr || gate->waitForArrivals());
                resizeStream(*stream, size);
                resizeStream(*stream, grown);
                if (gate != nullptr) {
                    gate->open();
                }
                auto expected = m_content.substr(0, size);
                expected.resize(grown, '\0');
                EXPECT_EQ(readAll(stream), expected);
                stream->close();
                EXPECT_EQ(m_client->content(m_key), expected);
                EXPECT_EQ(m_client->openUploads(), 0U);
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

// The fetch was asked for by nobody who would wait for it, and ends with bytes that the file has no longer.
TEST_F(ResizeStreamTest, APartThatIsCutOffWhileItIsFetchedAheadStaysAway) {
    m_options.transferThreads = 1;
    m_options.readAheadParts = 1;
    startAnew(true);
    storeFourParts();
    const auto stream = openFile(update());
    std::string bytes(9, '?');
    ASSERT_EQ(stream->read(bytes.data(), 9), 9);  // the third part is fetched ahead
    while (m_client->count("getRange") < 3) {
        std::this_thread::yield();
    }
    auto& gate = m_client->gate("getRange");
    bytes.resize(8);
    ASSERT_EQ(stream->read(bytes.data(), 8), 8);  // and now the fourth one
    ASSERT_TRUE(gate.waitForArrivals());
    auto resizing = std::async(std::launch::async, [&] { resizeStream(*stream, 25); });
    EXPECT_NE(resizing.wait_for(std::chrono::milliseconds(20)), std::future_status::ready)
        << "the store might be asked for what it has no longer";
    gate.open();
    resizing.get();
    storeStream(*stream);
    resizeStream(*stream, 27);
    EXPECT_EQ(readAll(stream), m_content.substr(0, 25) + std::string(2, '\0'));
}

TEST_F(ResizeStreamTest, AFileThatIsCutToOnePartForgetsWhatWasSent) {
    for (const std::uint64_t size : {8U, 3U, 0U}) {
        for (const bool failsToAbort : {false, true}) {
            SCOPED_TRACE(testing::Message() << size << failsToAbort);
            startAnew(failsToAbort);
            const auto stream = openFile(replace());
            write(stream, m_content);  // three parts were sent
            resizeStream(*stream, size);
            if (failsToAbort) {
                m_client->failOperation("abortMultipartUpload", 1, CallControl::When::After);
            }
            storeStream(*stream);
            EXPECT_EQ(m_client->content(m_key), resized(size));
            EXPECT_EQ(m_client->openUploads(), 0U);
            writeAt(stream, 1, m_content);
            stream->close();
            EXPECT_EQ(m_client->content(m_key),
                      resized(size == 0 ? 0 : 1) + (size == 0 ? std::string(1, '\0') : "") + m_content);
        }
    }
}

// Where the end is, is decided in the step in which its part is opened.
TEST_F(ResizeStreamTest, AppendingBesideACutLeavesNoGap) {
    const auto cutter = openFile(replace());
    std::atomic<bool> goesOn = true;
    std::thread cutting([&] {
        while (goesOn) {
            resizeStream(*cutter, 0);
        }
    });
    const auto appender = openFile(update(Options::WriteMode::Append));
    for (int time = 0; time < 300 && !HasFailure(); ++time) {
        appender->seek(0, std::ios_base::beg);
        write(appender, std::string(2 * kPartSize, 'Z'));
        EXPECT_EQ(readAll(appender).find('\0'), std::string::npos);
    }
    goesOn = false;
    cutting.join();
}

TEST_F(ResizeStreamTest, AResizeIsAChangeThatOthersCountOn) {
    storeFourParts();
    const auto resizer = openFile(update());
    const auto other = openFile(update());
    resizeStream(*resizer, 27);
    resizer->close();
    EXPECT_TRUE(abandonStream(*other)) << "nothing was changed";
    const auto again = openFile(update());
    const auto last = openFile(update());
    resizeStream(*again, 26);
    again->close();
    EXPECT_FALSE(abandonStream(*last));
    last->close();
    EXPECT_EQ(m_client->content(m_key), resized(26));
}

}  // namespace storage::cloudprovider::test
