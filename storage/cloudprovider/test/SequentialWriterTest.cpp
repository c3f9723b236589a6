// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/openSequentialWriter.hpp>
#include <storage/cloudprovider/storeStream.hpp>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <utility>
#include <vector>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::IProvider;
using foundation::storage::provider::ReplacementPolicy;

class SequentialWriterTest : public EngineTest {
protected:
    void startWith(std::uint32_t threads, bool lightBuffers = false) {
        m_options.transferThreads = threads;
        m_options.lightBuffers = lightBuffers;
        startAnew(true);
    }

    Stream openWriter() const { return openSequentialWriter(*m_provider, m_file); }

    static std::string bytesOf(std::size_t count) {
        std::string bytes(count, '\0');
        std::generate(bytes.begin(), bytes.end(),
                      [next = 0]() mutable { return static_cast<char>('a' + next++ % 26); });
        return bytes;
    }
};

TEST_F(SequentialWriterTest, AnyBytesInAnyPiecesAreStoredWithLittleRoom) {
    for (const std::uint32_t threads : {0U, 1U, 4U}) {
        for (const bool lightBuffers : {false, true}) {
            for (const std::size_t size : {0U, 1U, 7U, 8U, 9U, 16U, 83U}) {
                for (const std::size_t piece : {1U, 5U, 8U, 100U}) {
                    SCOPED_TRACE(testing::Message() << threads << " threads, " << size << " bytes by " << piece);
                    startWith(threads, lightBuffers);
                    m_client->store(m_key, "what was there");
                    m_client->clearCalls();
                    const auto bytes = bytesOf(size);
                    const auto stream = openWriter();
                    for (std::size_t at = 0; at < size; at += piece) {
                        write(stream, bytes.substr(at, piece));
                        ASSERT_LE(m_folder.fileCount(), threads + 2);
                        ASSERT_EQ(m_client->content(m_key), "what was there");
                    }
                    stream->close();
                    ASSERT_EQ(m_client->content(m_key), bytes);
                    ASSERT_EQ(m_client->count("putObjectOver"), size <= kPartSize ? 1U : 0U);
                    ASSERT_EQ(m_client->count("uploadPart"),
                              size <= kPartSize ? 0U : (size + kPartSize - 1) / kPartSize);
                    ASSERT_EQ(m_folder.fileCount(), 0U);
                    ASSERT_FALSE(isOpen());
                }
            }
        }
    }
}

TEST_F(SequentialWriterTest, TheFileIsItsOwnerSAlone) {
    startWith(0);
    m_client->store(m_key, "old");
    m_client->store("folder/other", "other");
    const IRI other(u"/folder/other");
    const auto stream = openWriter();
    write(stream, "new");
    const std::pair<const char*, std::function<void()>> refused[] = {
        {"openStream", [&] { openFile(update()); }},
        {"openReadOnlyStream", [&] { openForReading(); }},
        {"openSequentialWriter", [&] { openWriter(); }},
        {"removeFile", [&] { m_provider->removeFile(m_file); }},
        {"moveFile from it", [&] { m_provider->moveFile(m_file, IRI(u"/x"), ReplacementPolicy::Replace); }},
        {"moveFile to it", [&] { m_provider->moveFile(other, m_file, ReplacementPolicy::Replace); }},
        {"copyFile from it", [&] { m_provider->copyFile(m_file, IRI(u"/x"), ReplacementPolicy::Replace); }},
        {"copyFile to it", [&] { m_provider->copyFile(other, m_file, ReplacementPolicy::Replace); }},
    };
    for (const auto& [name, action] : refused) {
        SCOPED_TRACE(name);
        EXPECT_EQ(errorCodeOf(action), ErrorCode::InUse);
    }
    EXPECT_EQ(m_client->content(m_key), "old");
    EXPECT_EQ(m_client->content("folder/other"), "other");
    stream->close();
    const auto reader = openForReading();
    EXPECT_EQ(readAll(reader), "new");
    EXPECT_EQ(errorCodeOf([&] { openWriter(); }), ErrorCode::InUse) << "somebody reads it";
}

TEST_F(SequentialWriterTest, NothingButWritingOnIsOffered) {
    startWith(0);
    m_client->setFault([] { throw InvalidLocationException(); });
    m_client->failOperation("checkObjectName");
    EXPECT_EQ(errorCodeOf([&] { openWriter(); }), ErrorCode::InvalidLocation);
    EXPECT_FALSE(isOpen());
    EXPECT_EQ(errorCodeOf([&] { openSequentialWriter(*m_provider, IRI(u"/")); }), ErrorCode::NotFound);
    const auto stream = openWriter();
    write(stream, "bytes");
    char byte = 0;
    EXPECT_EQ(errorCodeOf([&] { stream->read(&byte, 1); }), ErrorCode::PermissionDenied);
    EXPECT_EQ(errorCodeOf([&] { stream->seek(0, std::ios_base::cur); }), ErrorCode::Unsupported);
    EXPECT_EQ(errorCodeOf([&] { storeStream(*stream); }), ErrorCode::Unsupported);
    stream->close();
    stream->close();
    EXPECT_EQ(errorCodeOf([&] { write(stream, "x"); }), ErrorCode::Unknown);
    EXPECT_TRUE(abandonStream(*stream));
    EXPECT_EQ(m_client->content(m_key), "bytes");
}

TEST_F(SequentialWriterTest, AtMostTwoPartsMoreThanThreadsAreHeldWhileTheStoreHangs) {
    startWith(2);
    auto& gate = m_client->gate("uploadPart");
    const auto stream = openWriter();
    auto writing = std::async(std::launch::async, [&] { write(stream, bytesOf(12 * kPartSize)); });
    ASSERT_TRUE(gate.waitForArrivals(3)) << "both threads and the writer";
    EXPECT_EQ(m_folder.fileCount(), 4U);
    gate.open();
    writing.get();
    stream->close();
    EXPECT_EQ(m_client->content(m_key), bytesOf(12 * kPartSize));
}

TEST_F(SequentialWriterTest, AFailureIsLeftToTheNextCallOnceBytesWereTaken) {
    startWith(0);
    const auto bytes = bytesOf(4 * kPartSize);
    m_client->failOperation("uploadPart", 1, CallControl::When::Before, CallControl::Repeat::Forever);
    auto stream = openWriter();
    const auto taken = stream->write(bytes.data(), static_cast<std::int64_t>(bytes.size()));
    EXPECT_EQ(taken, static_cast<std::int64_t>(2 * kPartSize)) << "all for which there is room";
    const auto rest = bytes.substr(static_cast<std::size_t>(taken));
    EXPECT_EQ(errorCodeOf([&] { write(stream, rest); }), ErrorCode::Unknown);
    EXPECT_EQ(m_folder.fileCount(), 2U);
    m_client->clearFaults();
    write(stream, rest);
    stream->close();
    EXPECT_EQ(m_client->content(m_key), bytes);

    m_client->failOperation("uploadPart", 4);
    stream = openWriter();
    write(stream, bytesOf(4 * kPartSize));
    EXPECT_EQ(errorCodeOf([&] { stream->close(); }), ErrorCode::Unknown);
    EXPECT_EQ(m_client->content(m_key), bytes);
    EXPECT_EQ(m_client->openUploads(), 0U);
}

// Whoever copies with threads writes sequentially: a failure reaches the caller with its cause.
TEST_F(SequentialWriterTest, CopiesWithThreadsTellWhyTheyFailed) {
    startWith(2);
    m_client->storeParts("folder/source", bytesOf(10 * kPartSize), std::vector<std::uint64_t>(10, kPartSize));
    const IRI source(u"/folder/source");
    m_client->setFault([] { throw PermissionDeniedException(); });
    m_client->failOperation("uploadPart", 3, CallControl::When::Before, CallControl::Repeat::Forever);
    EXPECT_EQ(errorCodeOf([&] { m_provider->copyFile(source, m_file, ReplacementPolicy::Fail); }),
              ErrorCode::PermissionDenied);
    EXPECT_FALSE(m_client->content(m_key));
    m_client->clearFaults();
    m_provider->copyFile(source, m_file, ReplacementPolicy::Fail);
    EXPECT_EQ(m_client->content(m_key), bytesOf(10 * kPartSize));
}

TEST_F(SequentialWriterTest, GivingUpWaitsForWhatIsOnItsWayAndLeavesNothing) {
    startWith(2);
    m_client->store(m_key, "old");
    auto& gate = m_client->gate("uploadPart");
    const auto stream = openWriter();
    write(stream, bytesOf(2 * kPartSize + 1));
    ASSERT_TRUE(gate.waitForArrivals(2));
    auto abandoning = std::async(std::launch::async, [&] { return abandonStream(*stream); });
    EXPECT_EQ(abandoning.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    gate.open();
    EXPECT_TRUE(abandoning.get());
    EXPECT_EQ(m_folder.fileCount(), 0U);
    EXPECT_EQ(m_client->openUploads(), 0U);
    EXPECT_EQ(m_client->content(m_key), "old");
    EXPECT_FALSE(isOpen());
}

TEST_F(SequentialWriterTest, AnotherProvidersFilesAreNotItsBusiness) {
    class Other final : public IProvider {};
    EXPECT_EQ(errorCodeOf([&] { openSequentialWriter(Other(), m_file); }), ErrorCode::Unsupported);
}

}  // namespace storage::cloudprovider::test
