// SPDX-License-Identifier: Apache-2.0
#include "AllocationFaults.hpp"
#include "EngineTest.hpp"
#include "buffers/DiskBackedBufferFactory.hpp"
#include "context/OpenFileContext.hpp"
#include "openfile/OpenPartBuffer.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/openSequentialWriter.hpp>
#include <storage/cloudprovider/storeStream.hpp>

#include <boost/filesystem/operations.hpp>

#include <sys/mount.h>
#include <sys/stat.h>
#include <algorithm>
#include <cstring>
#include <new>
#include <sstream>
#include <thread>

namespace storage::cloudprovider::test {

namespace {

// A small disk at a folder, unless there is no right to make one.
class SmallDisk {
public:
    SmallDisk(const boost::filesystem::path& folder, const char* size)
        : m_folder(folder.native()), m_isThere(::mount("tmpfs", m_folder.c_str(), "tmpfs", 0, size) == 0) {}
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk() {
        if (m_isThere) {
            ::umount2(m_folder.c_str(), MNT_DETACH);  // what is open there goes later
        }
    }

    bool isThere() const { return m_isThere; }

private:
    const std::string m_folder;
    const bool m_isThere;
};

}  // namespace

class PartBufferTest : public EngineTest {
protected:
    using WriteFailure = foundation::storage::provider::ByteStreamWriteFailure;

    std::shared_ptr<OpenPartBuffer> makePart(const PartInfo& info, LocalDataVersion version, bool isLast = true) const {
        const auto context = std::make_shared<OpenFileContext>(
            m_file, m_client, std::make_unique<DiskBackedBufferFactory>(m_room), m_options);
        const auto capacity = isLast ? std::max(info.Size, context->partSize) : info.Size;
        return std::make_shared<OpenPartBuffer>(info, version, capacity, context);
    }

    std::shared_ptr<OpenPartBuffer> storedPart(std::uint64_t size) const {
        m_client->store(m_key, std::string("stored bytes").substr(0, size));
        return makePart({0, 0, size, ""}, LocalDataVersion::CLOUD);
    }

    static std::string bytesOf(const OpenPartBuffer& part) { return {part.data(), part.size()}; }

    // What the temporary files take of the disk, in bytes.
    std::uint64_t roomTaken() const {
        std::uint64_t blocks = 0;
        for (const auto& file : m_folder.files()) {
            struct stat status {};
            EXPECT_EQ(::stat(file.c_str(), &status), 0);
            blocks += static_cast<std::uint64_t>(status.st_blocks);
        }
        return blocks * 512;
    }

    void buildProvider(std::uint64_t partSize, bool lightBuffers) {
        m_options.partSize = partSize;
        m_options.lightBuffers = lightBuffers;
        m_provider = buildCloudProvider(m_providersClient, FolderPolicy::MarkerObjects, false, m_options);
    }

    Room m_room = Room::AtOnce;
    ProviderOptions m_options;
};

TEST_F(PartBufferTest, DiskBackedBuffersKeepTheirBytesUntilTheyGo) {
    for (const Room room : {Room::AtOnce, Room::InSteps}) {
        for (const std::uint64_t size : {0U, 1U, 4095U, 4096U, 100'000U, 10'000'000U}) {
            SCOPED_TRACE(std::to_string(size) + (room == Room::AtOnce ? " at once" : " in steps"));
            auto buffer = DiskBackedBufferFactory(room).build(size);
            EXPECT_EQ(buffer->size(), size);
            EXPECT_EQ(buffer->data(), nullptr);
            buffer->open();
            auto* const data = buffer->data();
            ASSERT_NE(data, nullptr);
            for (std::uint64_t end = 1, begin = 0; begin < size; begin = end, end = std::min(3 * end, size)) {
                buffer->reserve(end);
                EXPECT_EQ(std::string(data + begin, end - begin), std::string(end - begin, '\0'));
                std::memset(data + begin, 'x', end - begin);
                if (room == Room::InSteps) {
                    EXPECT_LE(roomTaken(), 2 * end + (5U << 20U)) << "far ahead of need";
                    EXPECT_LE(roomTaken(), 8 * end + 8192) << "far ahead of need";
                }
            }
            EXPECT_EQ(buffer->data(), data);
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
}

TEST_F(PartBufferTest, PartsLieInMemoryAsLongAsThereIsSomeForThem) {
    const auto memory = std::make_shared<PartMemory>(10'000'000);
    DiskBackedBufferFactory factory(Room::InSteps, memory);
    std::vector<std::unique_ptr<Buffer>> buffers;
    for (const std::uint64_t size : {0U, 1U, 5'000'000U, 4'999'999U}) {
        SCOPED_TRACE(size);
        buffers.push_back(factory.build(size));
        auto& buffer = *buffers.back();
        EXPECT_EQ(buffer.size(), size);
        EXPECT_EQ(buffer.data(), nullptr);
        buffer.open();
        buffer.reserve(size);
        EXPECT_EQ(std::string(buffer.data(), size), std::string(size, '\0'));
        std::memset(buffer.data(), 'x', size);
        buffer.close();
        EXPECT_EQ(buffer.data(), nullptr);
        buffer.open();
        EXPECT_EQ(std::string(buffer.data(), size), std::string(size, 'x'));
    }
    EXPECT_EQ(m_folder.fileCount(), 0U);
    buffers.push_back(factory.build(1));
    EXPECT_EQ(m_folder.fileCount(), 1U) << "more than there is";
    buffers.clear();
    buffers.push_back(factory.build(10'000'000));
    EXPECT_EQ(m_folder.fileCount(), 0U) << "what goes gives its memory back";
    EXPECT_FALSE(memory->take(1));
}

TEST_F(PartBufferTest, AProvidersFilesShareTheMemoryForParts) {
    m_options.partMemory = 2 * kPartSize;
    m_provider = buildCloudProvider(m_providersClient, FolderPolicy::MarkerObjects, false, m_options);
    const std::string content(3 * kPartSize, 'x');
    for (const bool isSequential : {false, true}) {
        SCOPED_TRACE(isSequential);
        const auto stream = isSequential ? openSequentialWriter(*m_provider, m_file) : openFile(replace());
        write(stream, content);
        EXPECT_LE(m_folder.fileCount(), 1U);
        stream->close();
        EXPECT_EQ(m_client->content(m_key), content);
        EXPECT_EQ(readAll(openForReading()), content);
        EXPECT_EQ(m_folder.fileCount(), 0U);
    }
}

TEST_F(PartBufferTest, ABufferThatCannotBeAllocatedLeavesNoFile) {
    for (const Room room : {Room::AtOnce, Room::InSteps}) {
        bool hasFailed = true;
        for (std::size_t nth = 1; hasFailed; ++nth) {
            SCOPED_TRACE("allocation " + std::to_string(nth));
            std::unique_ptr<Buffer> buffer;
            bool hasGrown = false;
            AllocationFaults::failNth(nth);
            try {
                buffer = DiskBackedBufferFactory(room).build(100'000);
                buffer->reserve(1);
                buffer->reserve(100'000);
                hasGrown = true;
            } catch (const std::bad_alloc&) {
                EXPECT_TRUE(AllocationFaults::hasFailed());
            }
            hasFailed = AllocationFaults::hasFailed();
            AllocationFaults::reset();
            EXPECT_EQ(m_folder.fileCount(), buffer ? 1U : 0U);
            EXPECT_TRUE(hasGrown || hasFailed);
            EXPECT_TRUE(hasFailed || nth > 3) << "the buffer, its file and the name of that were allocated";
        }
    }
}

TEST_F(PartBufferTest, AFullTemporaryDiskIsAFailureOfThatWriteAlone) {
    struct Row {
        const char* name;
        bool lightBuffers;
        const char* room;
        std::size_t callSize;
        std::size_t taken;
    };
    const Row rows[] = {{"at once", false, "size=64k", 98'304, 65'536},
                        {"in steps", true, "size=64k", 98'304, 65'536},
                        {"in steps, by small calls", true, "size=64k", 1'024, 65'536},
                        {"in steps, within a part", true, "size=56k", 1'024, 49'152}};
    const std::string content(98'304, 'x');
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const SmallDisk disk(m_folder.path(), row.room);
        if (!disk.isThere()) {
            GTEST_SKIP() << "no right to mount a small tmpfs";
        }
        buildProvider(32'768, row.lightBuffers);
        m_client->store(m_key, "old");
        const auto stream = openFile(replace());
        const auto count = static_cast<std::int64_t>(row.callSize);
        const auto writeAll = [&] {
            for (std::size_t at = 0; at < content.size(); at += row.callSize) {
                stream->write(content.data() + at, count);
            }
        };
        EXPECT_THROW(writeAll(), WriteFailure);
        EXPECT_THROW(DiskBackedBufferFactory().build(1'000'000), UnknownErrorException);
        stream->seek(1'000'000, std::ios_base::beg);
        EXPECT_THROW(stream->write("x", 1), WriteFailure);
        stream->seek(0, std::ios_base::end);
        EXPECT_EQ(stream->seek(0, std::ios_base::cur), std::streampos(static_cast<std::streamoff>(row.taken)))
            << "grown without room";
        stream->close();  // what did fit is stored
        EXPECT_EQ(m_client->content(m_key), content.substr(0, row.taken));
        EXPECT_EQ(m_folder.fileCount(), 0U);

        const auto buffer = DiskBackedBufferFactory(Room::InSteps).build(1'000'000);
        buffer->reserve(1);
        EXPECT_THROW(buffer->reserve(1'000'000), UnknownErrorException);
        EXPECT_EQ(boost::filesystem::file_size(m_folder.files().front()), 4'096U)
            << "does not give back what it cannot use";
    }
}

TEST_F(PartBufferTest, AGapThatHasNoRoomLeavesTheFileAsItWas) {
    struct Row {
        const char* name;
        const char* room;
        std::size_t size;
        std::int64_t gapEnd;
    };
    const Row rows[] = {{"none for the rest of the first part", "size=20k", 3, 32'768},
                        {"none for the byte behind the gap", "size=32k", 32'768, 1'000'000}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const SmallDisk disk(m_folder.path(), row.room);
        if (!disk.isThere()) {
            GTEST_SKIP() << "no right to mount a small tmpfs";
        }
        buildProvider(32'768, true);
        const std::string content(row.size, 'x');
        const auto stream = openFile(replace());
        write(stream, content);
        stream->seek(row.gapEnd, std::ios_base::beg);
        EXPECT_THROW(stream->write("y", 1), WriteFailure);
        EXPECT_EQ(readAll(stream), content);
        stream->close();
        EXPECT_EQ(m_client->content(m_key), content);
        EXPECT_EQ(m_client->count("startMultipartUpload"), 0U) << "a file of one part is put as a whole";
    }
}

TEST_F(PartBufferTest, ASmallFileTakesAsMuchRoomAsItNeeds) {
    startAnew(true);
    buildProvider(5U << 20U, true);
    const auto stream = openFile(replace());
    write(stream, std::string(100, 'x'));
    EXPECT_EQ(roomTaken(), 4'096U);
    storeStream(*stream);  // copies the bytes, which may change
    stream->close();
    const auto reader = openForReading();
    EXPECT_EQ(readAll(reader), std::string(100, 'x'));
    EXPECT_EQ(roomTaken(), 4'096U);
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
    EXPECT_FALSE(part->close());
    EXPECT_TRUE(part->close());
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
    EXPECT_TRUE(part->close());
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

// Touching bytes that have no room ends the process.
TEST_F(PartBufferTest, APartHasRoomForWhatItHasGrownTo) {
    m_options.partSize = 1'000'000;
    m_room = Room::InSteps;
    const auto loaded = storedPart(6);
    auto& gate = m_client->gate("getObject");
    std::thread opener([&] { loaded->open(); });
    ASSERT_TRUE(gate.waitForArrivals());
    loaded->increaseSizeToMax();
    gate.open();
    opener.join();
    EXPECT_EQ(bytesOf(*loaded), "stored" + std::string(999'994, '\0'));
    loaded->close();

    const auto blank = makePart({0, 0, 5'000, ""}, LocalDataVersion::NEW);
    blank->open();
    EXPECT_EQ(bytesOf(*blank), std::string(5'000, '\0'));
    blank->close();
    blank->increaseSize(300'000);  // local, but not mapped
    blank->open();
    EXPECT_EQ(bytesOf(*blank), std::string(305'000, '\0'));
    blank->increaseSizeToMax();
    EXPECT_EQ(bytesOf(*blank), std::string(1'000'000, '\0'));
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

TEST_F(PartBufferTest, APartThatTheFileHasNoLongerStaysInvalid) {
    const auto part = storedPart(6);
    part->open();
    part->markModified();
    ASSERT_TRUE(part->markUploading());
    part->invalidate();
    EXPECT_EQ(bytesOf(*part), "stored") << "who has it open goes on";
    EXPECT_TRUE(part->markUploadFailed()) << "a failure that matters to nobody";
    EXPECT_EQ(part->localDataVersion(), LocalDataVersion::INVALID);
    EXPECT_FALSE(part->markUploading());
    part->close();
    EXPECT_FALSE(part->openIfModified());
    part->discardIfBlank();
    EXPECT_EQ(m_folder.fileCount(), 0U);
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
