// SPDX-License-Identifier: Apache-2.0
#include "AllocationFaults.hpp"
#include "DiskBackedBufferFactory.hpp"
#include "EngineTest.hpp"
#include "OpenFileContext.hpp"
#include "OpenPartBuffer.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <boost/filesystem/operations.hpp>

#include <sys/mount.h>
#include <cstring>
#include <new>
#include <sstream>
#include <thread>

namespace storage::cloudprovider::test {

class PartBufferTest : public EngineTest {
protected:
    std::shared_ptr<OpenPartBuffer> makePart(PartInfo info, LocalDataVersion version, bool isLast = true) const {
        const auto context =
            std::make_shared<OpenFileContext>(m_file, m_client, std::make_unique<DiskBackedBufferFactory>());
        return std::make_shared<OpenPartBuffer>(std::move(info), version, isLast, context);
    }

    std::shared_ptr<OpenPartBuffer> storedPart(std::uint64_t size) const {
        m_client->store(m_key, std::string("stored bytes").substr(0, size));
        return makePart({0, 0, size, ""}, LocalDataVersion::CLOUD);
    }

    static std::string bytesOf(const OpenPartBuffer& part) { return {part.data(), part.size()}; }
};

TEST_F(PartBufferTest, DiskBackedBuffersKeepTheirBytesUntilTheyGo) {
    for (const std::uint64_t size : {0, 1, 4095, 4096, 100'000}) {
        SCOPED_TRACE(size);
        auto buffer = DiskBackedBufferFactory().build(size);
        EXPECT_EQ(buffer->size(), size);
        EXPECT_EQ(buffer->data(), nullptr);
        buffer->open();
        ASSERT_NE(buffer->data(), nullptr);
        EXPECT_EQ(std::string(buffer->data(), size), std::string(size, '\0'));
        std::memset(buffer->data(), 'x', size);
        buffer->close();
        EXPECT_FALSE(buffer->isOpen());
        EXPECT_EQ(buffer->data(), nullptr);
        buffer->open();
        EXPECT_EQ(std::string(buffer->data(), size), std::string(size, 'x'));
        EXPECT_EQ(m_folder.fileCount(), 1U);
        buffer.reset();  // while it is open
        EXPECT_EQ(m_folder.fileCount(), 0U);
    }
}

TEST_F(PartBufferTest, ABufferThatCannotBeAllocatedLeavesNoFile) {
    for (std::size_t nth = 1;; ++nth) {
        SCOPED_TRACE("allocation " + std::to_string(nth));
        std::unique_ptr<Buffer> buffer;
        AllocationFaults::failNth(nth);
        try {
            buffer = DiskBackedBufferFactory().build(100);
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(AllocationFaults::hasFailed());
        }
        const bool hasFailed = AllocationFaults::hasFailed();
        AllocationFaults::reset();
        EXPECT_EQ(m_folder.fileCount(), buffer ? 1U : 0U);
        if (!hasFailed) {
            EXPECT_TRUE(buffer);
            EXPECT_GT(nth, 3U) << "the buffer, its file and the name of that were allocated";
            break;
        }
    }
}

TEST_F(PartBufferTest, AFullTemporaryDiskIsAFailureOfThatWriteAlone) {
    if (::mount("tmpfs", m_folder.path().c_str(), "tmpfs", 0, "size=64k") != 0) {
        GTEST_SKIP() << "no right to mount a small tmpfs: " << std::strerror(errno);
    }
    const std::string content(3 * 32'768, 'x');
    m_client->store(m_key, "old");
    {
        const ScopedVariable partSize("VX_CLOUD_PART_SIZE_OVERRIDE", "32768");
        const auto stream = openFile(replace());
        EXPECT_THROW(stream->write(content.data(), static_cast<std::int64_t>(content.size())),
                     foundation::storage::provider::ByteStreamWriteFailure);
        EXPECT_THROW(DiskBackedBufferFactory().build(1'000'000), UnknownErrorException);
        stream->seek(0, std::ios_base::end);
        EXPECT_EQ(stream->seek(0, std::ios_base::cur), std::streampos(2 * 32'768)) << "grown without room";
        stream->close();  // what did fit is stored
    }
    EXPECT_EQ(m_client->content(m_key), content.substr(0, 2 * 32'768));
    EXPECT_EQ(m_folder.fileCount(), 0U);
    ::umount(m_folder.path().c_str());
}

TEST_F(PartBufferTest, OpenersOfOnePartShareOneDownload) {
    const auto part = storedPart(6);
    auto& gate = m_client->gate("getObject");
    std::thread first([&] { part->open(); });
    ASSERT_TRUE(gate.waitForArrivals());
    std::thread second([&] { part->open(); });
    gate.open();
    first.join();
    second.join();
    EXPECT_EQ(m_client->count("getObject"), 1U);
    EXPECT_EQ(bytesOf(*part), "stored");
    EXPECT_FALSE(part->decrementOpenCount());
    EXPECT_TRUE(part->decrementOpenCount());
}

TEST_F(PartBufferTest, AFailedDownloadLeavesThePartToTheNextOpener) {
    const auto part = storedPart(6);
    auto& gate = m_client->gate("getObject");
    m_client->failOperation("getObject");
    std::thread first([&] { EXPECT_THROW(part->open(), UnknownErrorException); });
    ASSERT_TRUE(gate.waitForArrivals());
    std::thread second([&] { part->open(); });
    gate.open();
    first.join();
    second.join();
    EXPECT_EQ(bytesOf(*part), "stored");
    EXPECT_TRUE(part->decrementOpenCount());
}

TEST_F(PartBufferTest, OnlyExactlyTheStoredBytesAreTaken) {
    struct Row {
        const char* name;
        PartInfo info;
        bool isOnlyPart;
        std::string delivered;
        bool isTaken;
    };
    const Row rows[] = {{"all of them", {0, 0, 4, ""}, true, "abcd", true},
                        {"too few", {0, 0, 4, ""}, true, "abc", false},
                        {"none", {0, 0, 4, ""}, true, "", false},
                        {"too many", {0, 0, 4, ""}, true, "abcde", false},
                        {"range too short", {1, 4, 4, ""}, false, "abc", false},
                        {"range too long", {1, 4, 4, ""}, false, "abcde", false},
                        // To the store the range 0..0 is the whole object.
                        {"first byte of many", {0, 0, 1, ""}, false, "abcdefgh", true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeCloudClient::Options options;
        options.onDownload = [&row](std::string& bytes) { bytes = row.delivered; };
        m_client = std::make_shared<FakeCloudClient>(options);
        m_client->store(m_key, "abcdefgh");
        const auto part = makePart(row.info, LocalDataVersion::CLOUD, false);
        part->setIsOnlyPart(row.isOnlyPart);
        if (row.isTaken) {
            part->open();
            EXPECT_EQ(bytesOf(*part), row.delivered.substr(0, row.info.Size));
            part->close();
        } else {
            EXPECT_THROW(part->open(), UnknownErrorException);
            EXPECT_FALSE(part->isOpen());
        }
    }
}

TEST_F(PartBufferTest, GrowingNeverLosesStoredBytes) {
    const auto part = storedPart(6);
    EXPECT_EQ(part->increaseSizeToMax(), 6U);
    EXPECT_EQ(part->localDataVersion(), LocalDataVersion::NEW);
    ASSERT_TRUE(part->openIfModified());
    EXPECT_EQ(bytesOf(*part), std::string("stored\0\0", 8));
    part->close();

    const auto full = storedPart(8);
    EXPECT_EQ(full->increaseSizeToMax(), 8U);
    EXPECT_EQ(full->localDataVersion(), LocalDataVersion::CLOUD) << "it did not grow";

    const auto blank = makePart({0, 0, 0, ""}, LocalDataVersion::NEW);
    m_client->clearCalls();
    blank->open();
    EXPECT_EQ(m_client->callCount(), 0U) << "nothing is stored, nothing is to be asked for";
    EXPECT_EQ(blank->increaseSize(4), 0U);
    EXPECT_EQ(blank->increaseSize(10), 4U) << "cut at the capacity";
    EXPECT_EQ(blank->size(), 8U);
    EXPECT_EQ(blank->increaseSize(1, 2), 8U) << "never shrinks";
    EXPECT_EQ(blank->increaseSize(~std::uint64_t{0}, 7), 8U) << "does not wrap";
    EXPECT_EQ(blank->size(), 8U);
    blank->close();
}

TEST_F(PartBufferTest, OnlyWhatTheStoreHasIsDiscarded) {
    const auto part = storedPart(6);
    part->open();
    part->discardIfUnmodified();
    EXPECT_TRUE(part->hasLocalBytes()) << "open";
    part->markModified();
    part->close();
    part->discardIfUnmodified();
    EXPECT_TRUE(part->hasLocalBytes()) << "changed";
    ASSERT_TRUE(part->openIfModified());
    ASSERT_TRUE(part->markUploading());
    EXPECT_FALSE(part->markUploading()) << "handed over twice";
    part->discardIfUnmodified();
    EXPECT_TRUE(part->hasLocalBytes()) << "not stored yet";
    part->markModified();
    part->markUploaded();
    EXPECT_EQ(part->localDataVersion(), LocalDataVersion::NEW) << "changed while it was sent";
    ASSERT_TRUE(part->markUploading());
    part->markUploaded();
    part->close();
    part->discardIfUnmodified();
    EXPECT_FALSE(part->hasLocalBytes());
}

TEST_F(PartBufferTest, TextFormsAreFixed) {
    std::ostringstream text;
    text << PartInfo{2, 10485760, 5242880, "abc"} << PartInfo{} << LocalDataVersion::SCHEDULED_UPLOAD
         << static_cast<LocalDataVersion>(7);
    EXPECT_EQ(text.str(),
              "PartInfo{Index=2,Offset=10485760,Size=5242880,Tag=\"abc\"}"
              "PartInfo{Index=0,Offset=0,Size=0,Tag=\"\"}SCHEDULED_UPLOAD");
}

TEST_F(PartBufferTest, PartAndCacheSizesComeFromTheEnvironment) {
    const std::pair<const char*, std::uint64_t> rows[] = {
        {"", 5242880}, {"1048576", 1048576}, {" 42abc", 42}, {"abc", 5242880}, {"18446744073709551616", 5242880}};
    for (const auto& [value, expected] : rows) {
        SCOPED_TRACE(value);
        const ScopedVariable size("VX_CLOUD_PART_SIZE_OVERRIDE", value);
        EXPECT_EQ(OpenFileContext(m_file, m_client, nullptr).partSize, expected);
    }
    EXPECT_EQ(OpenFileContext(m_file, m_client, nullptr).downloadedPartCacheSize, 104857600U);
}

}  // namespace storage::cloudprovider::test
