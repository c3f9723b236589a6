// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"
#include "TraceGate.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/storeStream.hpp>

#include <functional>
#include <thread>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ByteStreamCloseFailure;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ReplacementPolicy;
using When = CallControl::When;
using Repeat = CallControl::Repeat;

// One file, and somebody else who writes to the store; its client tells versions.
class ConflictTest : public EngineTest {
protected:
    ConflictTest() { startAnew(true); }

    void storeOld(bool isLarge) {
        isLarge ? m_client->storeParts(m_key, m_large, {8, 8, 8, 3}) : m_client->store(m_key, "old");
    }
    void remove() { m_client->deleteObject(m_key); }

    const std::string m_large = "0123456789abcdefghijklmnopq";
    const std::string m_theirs = "theirs";
};

TEST_F(ConflictTest, AFileIsStoredOnlyOverWhatItWasMadeFrom) {
    const auto nothing = [] {};
    const auto store = [this] { m_client->store(m_key, m_theirs); };
    const auto removal = [this] { remove(); };
    struct Row {
        const char* name;
        bool isThere;
        Options options;
        bool storesBefore;
        std::function<void()> meanwhile;
        bool isStored;
    };
    const Row rows[] = {
        {"unchanged", true, update(), false, nothing, true},
        {"replaced", true, update(), false, store, false},
        {"removed", true, update(), false, removal, false},
        {"absent", false, update(), false, nothing, true},
        {"made by somebody else", false, update(), false, store, false},
        {"replaced, but discarded", true, replace(), false, store, true},
        {"removed, but discarded", true, replace(), false, removal, true},
        {"unchanged since it was stored", true, update(), true, nothing, true},
        {"replaced since it was stored", true, update(), true, store, false},
        {"discarded, replaced since it was stored", true, replace(), true, store, false},
        {"discarded, removed since it was stored", true, replace(), true, removal, false},
        {"made, replaced since it was stored", false, update(), true, store, false},
    };
    for (const bool isLarge : {false, true}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(row.name) + (isLarge ? ", large" : ", small"));
            startAnew(true);
            if (row.isThere) {
                storeOld(isLarge);
            }
            const auto stream = openFile(row.options);
            readAll(stream);  // every part is local: that nothing is fetched any more must not hide the conflict
            const std::string ours(isLarge ? 20 : 5, 'x');
            const auto writeOurs = [&] {
                stream->seek(0, std::ios_base::beg);
                write(stream, ours);
            };
            writeOurs();
            if (row.storesBefore) {
                storeStream(*stream);
                writeOurs();
            }
            row.meanwhile();
            const auto theirs = m_client->content(m_key);
            EXPECT_EQ(errorCodeOf([&] { stream->close(); }),
                      row.isStored ? std::nullopt : std::optional(ErrorCode::InUse));
            const auto stored = m_client->content(m_key);
            EXPECT_TRUE(row.isStored ? stored && stored->substr(0, ours.size()) == ours : stored == theirs);
            EXPECT_EQ(m_client->openUploads(), 0U);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(ConflictTest, TheFailureSaysThatTheObjectChanged) {
    storeOld(false);
    const auto stream = openFile(update());
    write(stream, "x");
    m_client->store(m_key, m_theirs);
    try {
        stream->close();
        ADD_FAILURE() << "closing succeeded";
    } catch (const ByteStreamCloseFailure& failure) {
        EXPECT_NE(std::string(failure.what()).find("while it was open"), std::string::npos) << failure.what();
    }
}

TEST_F(ConflictTest, AReaderGetsOneVersionOrAFailureAndANewOpenerTheNewOne) {
    for (const bool isRemoved : {false, true}) {
        startAnew(true);
        storeOld(true);
        const auto reader = openForReading();
        std::string bytes(8, '?');
        ASSERT_EQ(reader->read(bytes.data(), 8), 8);
        remove();
        if (!isRemoved) {
            m_client->storeParts(m_key, std::string(27, 'N'), {8, 8, 8, 3});
        }
        EXPECT_EQ(errorCodeOf([&] { reader->read(bytes.data(), 8); }), ErrorCode::InUse);
        EXPECT_FALSE(isOpen()) << "what the store has now is not open";
        if (isRemoved) {
            EXPECT_EQ(errorCodeOf([&] { openForReading(); }), ErrorCode::NotFound);
        } else {
            EXPECT_EQ(readAll(openForReading()), std::string(27, 'N'));
        }
        reader->seek(0, std::ios_base::beg);
        ASSERT_EQ(reader->read(bytes.data(), 8), 8);
        EXPECT_EQ(bytes, m_large.substr(0, 8)) << "what was read before is still of the old version";
    }
}

// A store may refuse for other reasons than that the object was replaced; then the file goes on.
// What a refusal finds in the store is the other writer's, even if it looks like ours.
TEST_F(ConflictTest, TheSameBytesOfAnotherWriterAreNotOurs) {
    startAnew(true);
    m_client->store(m_key, "");
    const auto ours = openFile(update(Options::WriteMode::Append));
    write(ours, "line\n");
    const auto theirs = anotherProcess()->openStream(m_file, update(Options::WriteMode::Append));
    write(theirs, "line\n");
    theirs->close();
    EXPECT_EQ(errorCodeOf([&] { ours->close(); }), ErrorCode::InUse);
    EXPECT_EQ(m_client->content(m_key), "line\n");
}

TEST_F(ConflictTest, AStoreThatIsBusyIsNoConflict) {
    storeOld(true);
    m_client->setFault([] { throw ResourceInUseException(); });
    for (const char* const operation : {"getRange", "copyRun", "completeUploadOver"}) {
        SCOPED_TRACE(operation);
        const auto stream = openFile(update());
        write(stream, "X");
        m_client->failOperation(operation);
        const auto store = [&] {
            stream->seek(16, std::ios_base::beg);
            write(stream, "X");
            storeStream(*stream);
        };
        EXPECT_EQ(errorCodeOf(store), ErrorCode::InUse);
        EXPECT_TRUE(isOpen());
        store();
        EXPECT_EQ(m_client->content(m_key), "X123456789abcdefXhijklmnopq");
    }
}

TEST_F(ConflictTest, ALostAnswerIsSettledByLooking) {
    allowViolations();
    struct Row {
        const char* name;
        const char* operation;
        bool isLarge;
        When when;
    };
    const Row rows[] = {{"put", "putObjectOver", false, When::After},
                        {"complete", "completeUploadOver", true, When::After},
                        {"failed put", "putObjectOver", false, When::Before},
                        {"failed complete", "completeUploadOver", true, When::Before}};
    enum class Look { Answers, Fails, FailsAndReplaced };
    for (const auto& row : rows) {
        for (const Look look : {Look::Answers, Look::Fails, Look::FailsAndReplaced}) {
            SCOPED_TRACE(std::string(row.name) + ", look " + std::to_string(static_cast<int>(look)));
            startAnew(true);
            storeOld(row.isLarge);
            const auto stream = openFile(update(Options::WriteMode::Append));
            write(stream, "AB");
            const auto expected = m_client->content(m_key).value() + "AB";
            m_client->failOperation(row.operation, 1, row.when);
            if (look != Look::Answers) {
                m_client->failOperation("describeObject");
            }
            const bool isSettled = row.when == When::After && look == Look::Answers;
            EXPECT_EQ(errorCodeOf([&] { storeStream(*stream); }),
                      isSettled ? std::nullopt : std::optional(ErrorCode::Unknown));
            write(stream, "CD");
            if (look == Look::FailsAndReplaced) {
                m_client->store(m_key, m_theirs);
                EXPECT_EQ(errorCodeOf([&] { storeStream(*stream); }), ErrorCode::InUse);
                EXPECT_EQ(errorCodeOf([&] { stream->close(); }), ErrorCode::InUse);
                EXPECT_EQ(m_client->content(m_key), m_theirs);
            } else {
                storeStream(*stream);
                write(stream, "EF");
                stream->close();
                EXPECT_EQ(m_client->content(m_key), expected + "CDEF");
            }
            EXPECT_EQ(m_client->openUploads(), 0U);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(ConflictTest, AWriteBesideALostAnswerIsTakenForNobodyElses) {
    const auto storer = openFile(update());
    const auto writer = openFile(update());
    write(storer, "stored");
    TraceGate inWrite("OpenPartBuffer::increaseSize(");
    std::thread writing([&] { write(writer, "next"); });
    ASSERT_TRUE(inWrite.waitForArrival());
    m_client->failOperation("putObjectOver", 1, When::After);
    auto& look = m_client->gate("describeObject");
    std::thread storing([&] { EXPECT_FALSE(errorCodeOf([&] { storeStream(*storer); })); });
    ASSERT_TRUE(look.waitForArrivals());
    inWrite.open();
    writing.join();
    look.open();
    storing.join();
    writer->close();
    storer->close();
    EXPECT_EQ(m_client->content(m_key), "nexted");
}

TEST_F(ConflictTest, TwoProcessesNeverMixTheirVersions) {
    for (const bool isLarge : {false, true}) {
        startAnew(true);
        storeOld(isLarge);
        const auto other = anotherProcess();
        const auto first = openFile(update());
        const auto second = other->openStream(m_file, update());
        write(first, "1");
        second->seek(0, std::ios_base::end);
        write(second, "2");
        second->close();
        EXPECT_EQ(errorCodeOf([&] { first->close(); }), ErrorCode::InUse);
        EXPECT_EQ(m_client->content(m_key), (isLarge ? m_large : "old") + "2");
    }
}

TEST_F(ConflictTest, WhatMustNotBeThereIsNotReplacedIfItComesMeanwhile) {
    const IRI source(u"/source");
    const std::pair<std::string, std::function<void()>> rows[] = {
        {m_key, [&] { m_provider->createFile(m_file); }},
        {m_key + "/", [&] { m_provider->createFolder(m_file); }},
        {m_key, [&] { m_provider->copyFile(source, m_file, ReplacementPolicy::Fail); }},
        {m_key, [&] { m_provider->moveFile(source, m_file, ReplacementPolicy::Fail); }}};
    for (const unsigned run : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U}) {
        const auto& [key, action] = rows[run % 4];
        SCOPED_TRACE(run);
        const auto mode = transferModes().at(run < 4 ? 0 : 3);
        const bool copiesInStore = mode.options.copyInStore && run % 4 >= 2;
        startAnew(true, mode.options);
        m_client->store("source", "bytes");
        m_client->store("folder/", "");
        auto& gate = m_client->gate(copiesInStore ? "copyObject" : "putObjectOver");
        std::thread maker([&, make = action] {
            const auto code = errorCodeOf(make);
            EXPECT_TRUE(code == ErrorCode::AlreadyExists || code == ErrorCode::InUse);
        });
        ASSERT_TRUE(gate.waitForArrivals());
        m_client->store(key, m_theirs);
        gate.open();
        maker.join();
        EXPECT_EQ(m_client->content(key), m_theirs);
        EXPECT_TRUE(m_client->content("source") || (run % 4 == 3 && !mode.storesFirst()));
    }
}

}  // namespace storage::cloudprovider::test
