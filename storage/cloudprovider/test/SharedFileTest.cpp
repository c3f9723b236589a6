// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"
#include "TraceGate.hpp"

#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/storeStream.hpp>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ReplacementPolicy;
using When = CallControl::When;

// Several threads, several streams, one file.
class SharedFileTest : public EngineTest {
protected:
    const std::string m_content = "0123456789abcdefghijklmnopq";

    void storeFourParts() { m_client->storeParts(m_key, m_content, {8, 8, 8, 3}); }
};

TEST_F(SharedFileTest, APartThatGrewIsNotCutOffByAnEarlierHandOver) {
    const auto first = openFile(replace());
    const auto second = openFile(update());
    write(first, "01234567AB");
    TraceGate gate("MultipartUploadManager::asyncUploadPart");
    std::thread leaver([&] { first->seek(0, std::ios_base::beg); });  // the second part, of two bytes, is handed over
    ASSERT_TRUE(gate.waitForArrival());
    second->seek(10, std::ios_base::beg);
    write(second, "CDEF");
    second->seek(0, std::ios_base::beg);  // now of six, it is sent
    gate.open();
    leaver.join();
    first->close();
    second->close();
    EXPECT_EQ(m_client->content(m_key), "01234567ABCDEF");
}

// Threads of one process, or each a process of its own that begins again when another one came first.
TEST_F(SharedFileTest, AppendersLoseNothingAndRepeatNothing) {
    constexpr int kThreads = 4;
    constexpr int kLines = 6;
    for (int round = 0; round < 75 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const bool areProcesses = round % 3 == 2;
        m_options.transferThreads = round % 4 == 3 ? 2 : 0;
        startAnew(round % 3 == 1);
        std::vector<std::thread> appenders;
        appenders.reserve(kThreads);
        for (int thread = 0; thread < kThreads; ++thread) {
            appenders.emplace_back([&, thread] {
                const auto provider = areProcesses ? anotherProcess() : m_provider;
                for (int line = 0; line < kLines;) {
                    const auto code = errorCodeOf([&] {
                        const auto stream = provider->openStream(m_file, update(Options::WriteMode::Append));
                        // Half a part long: a line never lies in two parts, between which others may append.
                        write(stream, {static_cast<char>('A' + thread), static_cast<char>('a' + line), '.', '\n'});
                        stream->close();
                    });
                    line += code ? 0 : 1;
                    EXPECT_TRUE(!code || (areProcesses && code == ErrorCode::InUse));
                }
            });
        }
        for (auto& appender : appenders) {
            appender.join();
        }
        std::vector<std::string> lines;
        const auto stored = m_client->content(m_key).value_or(std::string());
        for (std::size_t at = 0; at < stored.size(); at += 4) {
            lines.push_back(stored.substr(at, 4));
        }
        std::sort(lines.begin(), lines.end());
        ASSERT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kLines)) << stored;
        EXPECT_EQ(std::unique(lines.begin(), lines.end()), lines.end()) << stored;
        EXPECT_EQ(m_client->violations(), std::vector<std::string>());
    }
}

TEST_F(SharedFileTest, OpeningAndClosingWaitForNoTransferAndHoldUpNobody) {
    storeFourParts();
    auto& gate = m_client->gate("uploadPart");
    const auto writer = openFile(update());
    const auto reader = openForReading();
    write(writer, "X");
    std::thread sender([&] { writer->seek(20, std::ios_base::beg); });
    ASSERT_TRUE(gate.waitForArrivals());
    auto others = std::async(std::launch::async, [&] {
        openForReading()->close();
        reader->seek(8, std::ios_base::beg);
        char byte = 0;
        return reader->read(&byte, 1);
    });
    EXPECT_EQ(others.wait_for(std::chrono::seconds(20)), std::future_status::ready) << "held up by an upload";
    gate.open();
    EXPECT_EQ(others.get(), 1);
    sender.join();
}

TEST_F(SharedFileTest, AFailureThatTheWriteBackMadeGoodIsNone) {
    const auto copy = IRI(u"/copy");
    const std::string bytes = "ten bytes.";
    for (const std::string how : {"close", "copy", "move"}) {
        SCOPED_TRACE(how);
        startAnew();
        if (how == "close") {
            const auto stream = openFile(replace());
            write(stream, bytes);
            m_client->failOperation("uploadPart");
            stream->close();
        } else {
            m_client->store("copy", bytes);
            m_client->failOperation("uploadPart");
            how == "copy" ? m_provider->copyFile(copy, m_file, ReplacementPolicy::Replace)
                          : m_provider->moveFile(copy, m_file, ReplacementPolicy::Replace);
        }
        EXPECT_EQ(m_client->faultCount(), 1U);
        EXPECT_EQ(m_client->content(m_key), bytes);
    }
}

TEST_F(SharedFileTest, AFailureToSendWhatWasChangedMeanwhileIsNobodys) {
    storeFourParts();
    const auto first = openFile(update());
    const auto second = openFile(update());
    auto& gate = m_client->gate("uploadPart");
    m_client->failOperation("uploadPart");
    write(first, "X");
    std::thread leaver([&] { EXPECT_FALSE(errorCodeOf([&] { first->seek(20, std::ios_base::beg); })); });
    ASSERT_TRUE(gate.waitForArrivals());
    write(second, "Y");
    gate.open();
    leaver.join();
    first->close();
    second->close();
    EXPECT_EQ(m_client->content(m_key), "Y" + m_content.substr(1));
}

TEST_F(SharedFileTest, WhatAClosedStreamCountsOnIsNotAbandoned) {
    struct Row {
        const char* name;
        bool isThere;
        Options options;
        bool writes;
        bool stores;
        bool isAbandoned;
        std::optional<std::string> expected;
    };
    const Row rows[] = {{"wrote", true, update(), true, false, false, "new"},
                        {"wrote nothing", true, update(), false, false, true, "old"},
                        {"discarded", true, replace(), false, false, false, ""},
                        {"made the file", false, replace(), false, false, false, ""},
                        {"opened an absent file", false, update(), false, false, true, std::nullopt},
                        {"wrote, and stored it", true, update(), true, true, true, "new"},
                        {"discarded, and stored that", true, replace(), false, true, true, ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        startAnew();
        if (row.isThere) {
            m_client->store(m_key, "old");
        }
        const auto closed = openFile(row.options);
        const auto abandoned = openFile(update());
        if (row.writes) {
            write(closed, "new");
        }
        if (row.stores) {
            storeStream(*closed);
        }
        closed->close();
        EXPECT_EQ(abandonStream(*abandoned), row.isAbandoned);
        abandoned->close();
        EXPECT_EQ(m_client->content(m_key), row.expected);
    }
}

TEST_F(SharedFileTest, AnOpenerThatMeetsAnAbandonedFileGetsTheStoredOne) {
    m_client->store(m_key, "stored");
    const auto abandoned = openFile(replace());
    write(abandoned, "given up");
    TraceGate gate("OpenPartManager::unregisterByteStream");
    std::thread abandoner([&] { EXPECT_TRUE(abandonStream(*abandoned)); });
    ASSERT_TRUE(gate.waitForArrival());
    const auto opened = openFile(update(Options::WriteMode::Append));
    EXPECT_EQ(readAll(opened), "stored");
    opened->seek(0, std::ios_base::beg);
    write(opened, ", more");
    gate.open();
    abandoner.join();
    opened->close();
    EXPECT_EQ(m_client->content(m_key), "stored, more");
}

// The opener has found the file before the write-back failed, and goes on with what was to be stored.
TEST_F(SharedFileTest, AnOpenerDuringAFailedWriteBackCanStore) {
    allowViolations();  // an upload that was completed is aborted: the answer was lost
    for (const bool tellsVersions : {false, true}) {
        for (const When when : {When::Before, When::After}) {
            SCOPED_TRACE(std::string(tellsVersions ? "versions" : "plain") +
                         (when == When::Before ? ", before" : ", after"));
            startAnew(tellsVersions);
            storeFourParts();
            auto writer = openFile(update());
            write(writer, "X");
            m_client->failOperation(tellsVersions ? "completeUploadOver" : "completeMultipartUpload", 1, when);
            TraceGate gate("OpenPartManager::registerByteStream");
            std::thread opener([&] {
                const auto stream = openFile(update(Options::WriteMode::Append));
                write(stream, "more");
                stream->close();
            });
            ASSERT_TRUE(gate.waitForArrival());
            const bool isSettled = tellsVersions && when == When::After;
            EXPECT_EQ(errorCodeOf([&] { writer->close(); }).has_value(), !isSettled);
            gate.open();
            opener.join();
            EXPECT_EQ(m_client->content(m_key), "X" + m_content.substr(1) + "more");
            EXPECT_EQ(m_client->openUploads(), 0U);
        }
    }
}

TEST_F(SharedFileTest, TheNameOfAFileThatIsMadeIsChecked) {
    m_client->store(m_key, "there");
    openFile(update())->close();
    EXPECT_EQ(m_client->count("checkObjectName"), 0U);
    m_client->failOperation("checkObjectName");
    EXPECT_ANY_THROW(m_provider->openStream(IRI(u"/absent"), update()));
    EXPECT_FALSE(m_client->content("absent"));
}

}  // namespace storage::cloudprovider::test
