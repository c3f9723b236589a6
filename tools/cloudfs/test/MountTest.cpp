// SPDX-License-Identifier: Apache-2.0
#include "mount/ChangedRanges.hpp"
#include "mount/FileSystem.hpp"
#include "mount/Inodes.hpp"
#include "mount/UnsavedFiles.hpp"
#include "mount/errnoOf.hpp"

#include <EngineTest.hpp>
#include <foundation/services/InterruptScope.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/testing/VersionedFakeClient.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace cloudfs::mount {

namespace {

using storage::cloudprovider::test::CallControl;
using storage::cloudprovider::test::FakeCloudClient;
using storage::cloudprovider::test::ScopedTemporaryFolder;
using storage::cloudprovider::test::VersionedFakeClient;

constexpr OpenMode kReading{.reads = true};
constexpr OpenMode kWriting{.writes = true};
constexpr OpenMode kBoth{.reads = true, .writes = true};

int errnoFrom(const std::function<void()>& action) {
    try {
        action();
        return 0;
    } catch (const std::exception& failure) {
        return errnoOf(failure);
    }
}

TEST(ChangedRangesTest, TheyAreWhatWasWrittenAndIsStillThere) {
    constexpr std::size_t kMost = 40;
    std::mt19937 random(17);
    for (int run = 0; run < 200; ++run) {
        ChangedRanges ranges;
        std::vector<bool> expected(kMost, false);
        std::uint64_t kept = UINT64_MAX;
        for (int step = 0; step < 12; ++step) {
            const std::size_t begin = random() % kMost;
            if (random() % 4 == 0) {
                ranges.resize(begin);
                std::fill(expected.begin() + static_cast<std::ptrdiff_t>(begin), expected.end(), false);
                kept = std::min<std::uint64_t>(kept, begin);
            } else {
                const std::size_t end = begin + random() % (kMost - begin + 1);
                ranges.add(begin, end);
                std::fill(expected.begin() + static_cast<std::ptrdiff_t>(begin),
                          expected.begin() + static_cast<std::ptrdiff_t>(end), true);
            }
            std::vector<bool> told(kMost, false);
            std::uint64_t former = 0;
            for (const auto& [first, last] : ranges.written()) {
                ASSERT_TRUE(first < last && (former == 0 || first > former));
                std::fill(told.begin() + static_cast<std::ptrdiff_t>(first),
                          told.begin() + static_cast<std::ptrdiff_t>(last), true);
                former = last;
            }
            ASSERT_EQ(told, expected);
            ASSERT_EQ(ranges.keptOfStored(), kept);
        }
    }
}

TEST(InodesTest, ANumberIsThatOfThePathUnlessALivingNodeHasIt) {
    Inodes inodes;
    const StorePath path("/log");
    const auto first = inodes.enter(path, false);
    const auto shown = inodes.get(first).shown;
    inodes.move(first, StorePath("/log.1"));
    const auto second = inodes.enter(path, false);
    EXPECT_NE(second, first);
    EXPECT_EQ(inodes.get(first).shown, shown);  // what follows a file by its number finds it renamed
    EXPECT_NE(inodes.get(second).shown, shown);
    inodes.release(first, 1);
    inodes.release(second, 1);
    EXPECT_EQ(errnoFrom([&] { inodes.get(second); }), ESTALE);
    const auto third = inodes.enter(path, false);
    EXPECT_EQ(inodes.get(third).shown, shown);
    EXPECT_NE(third, second);
    const auto folder = inodes.enter(path, true);  // somebody made a folder of the file meanwhile
    EXPECT_FALSE(inodes.get(third).isLinked);
    EXPECT_TRUE(inodes.get(folder).isLinked);
}

// A mount of a store in memory, with parts of 10 bytes, and another mount of it.
class MountTest : public ::testing::Test {
protected:
    MountTest() { startAnew({}); }

    void startAnew(const FakeCloudClient::Options& options) {
        m_store = std::make_shared<FakeCloudClient>(options);
        m_files = mountStore(std::chrono::hours(1));
        m_others = mountStore(std::chrono::seconds(0));
    }

    std::unique_ptr<FileSystem> mountStore(std::chrono::seconds remembered) {
        storage::cloudprovider::ProviderOptions options;
        options.partSize = 10;
        options.lightBuffers = true;
        const auto client = std::make_shared<VersionedFakeClient>(m_store);
        return std::make_unique<FileSystem>(
            client,
            storage::cloudprovider::buildCloudProvider(client, storage::cloudprovider::FolderPolicy::MarkerObjects,
                                                       true, options),
            remembered);
    }

    NodeId nodeOf(const std::string& name) { return m_files->lookup(kRootNode, name).node; }
    HandleId open(const std::string& name, const OpenMode& mode) { return m_files->open(nodeOf(name), mode).handle; }
    HandleId create(const std::string& name) { return m_files->create(kRootNode, name, kBoth, true).second.handle; }

    std::string read(FileSystem& files, HandleId handle, std::uint64_t offset = 0) {
        std::string bytes(100, '\0');
        bytes.resize(files.read(handle, bytes.data(), bytes.size(), offset));
        return bytes;
    }
    std::string read(HandleId handle, std::uint64_t offset = 0) { return read(*m_files, handle, offset); }

    std::string readOnce(FileSystem& files, const std::string& name) {
        const auto handle = files.open(files.lookup(kRootNode, name).node, kReading).handle;
        auto bytes = read(files, handle);
        files.release(handle);
        return bytes;
    }

    void storeByOther(const std::string& name, const std::string& bytes) {
        const auto handle =
            m_others->open(m_others->lookup(kRootNode, name).node, {.writes = true, .truncates = true}).handle;
        m_others->write(handle, bytes, 0);
        m_others->flush(handle);
        m_others->release(handle);
    }

    std::vector<std::string> names() {
        std::vector<std::string> names;
        const auto handle = m_files->openFolder(kRootNode);
        for (std::uint64_t place = 2; const auto entry = m_files->listed(handle, place); ++place) {
            names.push_back(entry->name);
        }
        m_files->releaseFolder(handle);
        return names;
    }

    ScopedTemporaryFolder m_folder;
    std::shared_ptr<FakeCloudClient> m_store;
    std::unique_ptr<FileSystem> m_files;
    std::unique_ptr<FileSystem> m_others;
};

TEST_F(MountTest, WhatIsDoneHereShowsAtOnceHoweverLongListingsCount) {
    m_store->store("a", "former");
    EXPECT_EQ(names(), std::vector<std::string>{"a"});
    m_files->makeFolder(kRootNode, "folder");
    const auto handle = create("b");
    EXPECT_EQ(names(), (std::vector<std::string>{"a", "b", "folder"}));
    m_files->write(handle, "0123456789abc", 0);
    EXPECT_EQ(m_files->lookup(kRootNode, "b").size, 13U);
    m_files->flush(handle);
    EXPECT_EQ(m_store->content("b"), "0123456789abc");
    m_files->release(handle);
    EXPECT_EQ(m_files->lookup(kRootNode, "b").size, 13U);
    m_files->rename(kRootNode, "b", kRootNode, "c", true);
    m_files->removeFile(kRootNode, "a");
    m_files->removeFolder(kRootNode, "folder");
    EXPECT_EQ(names(), std::vector<std::string>{"c"});
    EXPECT_EQ(errnoFrom([&] { nodeOf("b"); }), ENOENT);
    EXPECT_EQ(m_store->keys(), std::vector<std::string>{"c"});
}

TEST_F(MountTest, AFileThatIsUnlinkedOrReplacedGoesOnAndStoresNothing) {
    for (const bool isReplaced : {false, true}) {
        SCOPED_TRACE(isReplaced);
        startAnew({});
        m_store->store("a", "0123456789abcdef");
        m_store->store("other", "new");
        const auto handle = open("a", kBoth);
        m_files->write(handle, "X", 12);
        if (isReplaced) {
            nodeOf("other");
            m_files->rename(kRootNode, "other", kRootNode, "a", true);
        } else {
            read(handle);
            m_files->removeFile(kRootNode, "a");
        }
        EXPECT_EQ(read(handle), "0123456789abXdef");
        m_files->write(handle, "Y", 0);
        m_files->flush(handle);
        m_files->release(handle);
        EXPECT_EQ(m_store->content("a"), isReplaced ? std::optional<std::string>("new") : std::nullopt);
        EXPECT_TRUE(m_files->unsaved().empty());
    }
}

TEST_F(MountTest, ARenamedFileIsStoredFirstAndIsWrittenUnderItsNewName) {
    for (const bool copiesInStore : {true, false}) {
        SCOPED_TRACE(copiesInStore);
        FakeCloudClient::Options options;
        options.copiesInStore = copiesInStore;
        startAnew(options);
        m_store->store("a", "0123456789abcdef");
        const auto reading = open("a", kReading);
        const auto writing = open("a", kWriting);
        EXPECT_EQ(read(reading, 14), "ef");
        m_files->write(writing, "X", 0);
        m_files->rename(kRootNode, "a", kRootNode, "b", false);
        EXPECT_EQ(m_store->content("b"), "X123456789abcdef");
        EXPECT_EQ(m_store->keys(), std::vector<std::string>{"b"});
        m_files->write(writing, "Y", 1);
        EXPECT_EQ(read(reading), "XY23456789abcdef");
        m_files->flush(writing);
        EXPECT_EQ(m_store->content("b"), "XY23456789abcdef");
        m_files->release(reading);
        m_files->release(writing);
        EXPECT_EQ(m_store->keys(), std::vector<std::string>{"b"});
    }
}

TEST_F(MountTest, ARenameThatFailsLeavesTheWholeFileAtOneNameAtLeast) {
    for (std::size_t nth = 1;; ++nth) {
        SCOPED_TRACE(nth);
        startAnew({});
        m_store->store("a", "content");
        m_store->store("b", "former");
        const auto handle = open("a", kBoth);
        nodeOf("b");
        m_files->write(handle, "C", 0);
        const auto faults = m_store->faultCount();
        m_store->failCall(nth);
        const int error = errnoFrom([&] { m_files->rename(kRootNode, "a", kRootNode, "b", true); });
        m_store->clearFaults();
        const bool isOver = m_store->faultCount() == faults;
        const bool isAtNew = m_store->content("b") == "Content";
        ASSERT_TRUE(isAtNew || m_store->content("b") == "former");
        ASSERT_TRUE(error == 0 ? isAtNew : m_store->content("a").has_value());
        m_files->write(handle, "!", 7);
        m_files->flush(handle);
        EXPECT_EQ(m_store->content(error == 0 ? "b" : "a"), "Content!");
        m_files->release(handle);
        if (isOver) {
            break;
        }
    }
}

TEST_F(MountTest, WhatMustNotBeThereIsNotReplaced) {
    m_store->store("a", "a");
    m_store->store("b", "b");
    m_store->store("folder/", "");
    nodeOf("a");
    EXPECT_EQ(errnoFrom([&] { create("a"); }), EEXIST);
    EXPECT_EQ(errnoFrom([&] { m_files->rename(kRootNode, "a", kRootNode, "b", false); }), EEXIST);
    nodeOf("folder");
    EXPECT_EQ(errnoFrom([&] { m_files->rename(kRootNode, "folder", kRootNode, "c", true); }), EXDEV);
    EXPECT_EQ(errnoFrom([&] { m_files->rename(kRootNode, "a", kRootNode, "folder", true); }), EISDIR);
    EXPECT_EQ(m_store->keys(), (std::vector<std::string>{"a", "b", "folder/"}));
    EXPECT_EQ(m_store->content("b"), "b");
}

TEST_F(MountTest, WhatCannotBeStoredIsReportedAndKeptUntilItCan) {
    m_store->store("a", "former");
    auto handle = open("a", kWriting);
    m_files->write(handle, "F", 0);
    m_store->failOperation("putObjectOver", 1, CallControl::When::Before, CallControl::Repeat::Forever);
    EXPECT_EQ(errnoFrom([&] { m_files->store(handle); }), EIO);
    EXPECT_EQ(errnoFrom([&] { m_files->store(handle); }), EIO);
    m_files->release(handle);
    EXPECT_EQ(m_files->unsaved().size(), 1U);
    EXPECT_EQ(errnoFrom([&] { open("a", kReading); }), EIO);  // the next one is told, once
    handle = open("a", kReading);
    EXPECT_EQ(read(handle), "Former");
    EXPECT_EQ(errnoFrom([&] { m_files->store(handle); }), EIO);
    m_store->clearFaults();
    m_files->store(handle);
    EXPECT_EQ(m_store->content("a"), "Former");
    EXPECT_TRUE(m_files->unsaved().empty());
    m_files->release(handle);
}

TEST_F(MountTest, AConflictIsToldAndWhoOpensTheFileThenGetsTheOthers) {
    m_store->store("a", "former");
    const auto handle = open("a", kWriting);
    m_files->write(handle, "mine", 0);
    storeByOther("a", "others");
    EXPECT_EQ(errnoFrom([&] { m_files->flush(handle); }), EBUSY);
    m_files->release(handle);
    EXPECT_EQ(errnoFrom([&] { open("a", kReading); }), EBUSY);
    EXPECT_EQ(errnoFrom([&] { open("a", kReading); }), ESTALE);  // the kernel looks it up again, and finds a new node
    EXPECT_EQ(readOnce(*m_files, "a"), "others");
    EXPECT_EQ(m_files->unsaved().size(), 1U);
    EXPECT_EQ(m_store->content("a"), "others");
}

TEST_F(MountTest, WhoOpensAFileOfAnotherSizeThanTheKernelKnowsLooksItUpAgain) {
    m_store->store("a", "former");
    const auto node = nodeOf("a");
    storeByOther("a", "longer than it was");
    EXPECT_EQ(errnoFrom([&] { m_files->open(node, kWriting); }), ESTALE);
    EXPECT_EQ(m_files->lookup(kRootNode, "a").size, 18U);
    m_files->release(m_files->open(node, kWriting).handle);
}

TEST_F(MountTest, AFileThatNobodyHasOpenIsResizedInTheStoreOrNotAtAll) {
    m_store->store("a", "0123456789abcdef");
    const auto node = nodeOf("a");
    m_files->resize(node, std::nullopt, 12);
    EXPECT_EQ(m_store->content("a"), "0123456789ab");
    m_store->failCall(1, CallControl::When::Before, CallControl::Repeat::Forever);
    EXPECT_EQ(errnoFrom([&] { m_files->resize(node, std::nullopt, 3); }), EIO);
    m_store->clearFaults();
    EXPECT_EQ(m_store->content("a"), "0123456789ab");
    EXPECT_EQ(m_files->attributes(node).size, 12U);
    EXPECT_TRUE(m_files->unsaved().empty());
    m_files->resize(node, std::nullopt, 14);
    EXPECT_EQ(m_store->content("a"), std::string("0123456789ab\0\0", 14));
}

TEST_F(MountTest, WhatStaysUnsavedIsKeptInAnOrderedForm) {
    m_store->store("a", "0123456789abcdef");
    const auto handle = open("a", kBoth);
    m_files->write(handle, "XY", 1);
    m_files->write(handle, "Z", 11);
    m_files->resize(nodeOf("a"), handle, 12);
    m_files->resize(nodeOf("a"), handle, 30);
    m_store->failCall(1, CallControl::When::Before, CallControl::Repeat::Forever);
    const auto folder = m_folder.path().native();
    UnsavedFiles unsaved(folder + "/kept");
    for (const auto& file : m_files->unsaved()) {
        EXPECT_TRUE(unsaved.keep(*file));
    }
    const auto contentOf = [&](const std::string& name) {
        std::ifstream file(unsaved.place() + name);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    EXPECT_EQ(contentOf("/1.bytes"), "XYZ");
    EXPECT_EQ(contentOf("/1.json"),
              R"({"path": "/a", "size": 30, "keptOfStored": 12, "ranges": [{"offset": 1, "size": 2}, )"
              R"({"offset": 11, "size": 1}]})"
              "\n");
    m_store->clearFaults();
    m_files->release(handle);
}

TEST_F(MountTest, AnInterruptEndsOneReadAndNoOtherThatWaitsForTheSameBytes) {
    m_store->store("a", "0123456789");
    const auto first = open("a", kReading);
    const auto second = open("a", kReading);
    auto& gate = m_store->gate("getRange");
    const auto interrupts = std::make_shared<foundation::InterruptSource>();
    auto loading = std::async(std::launch::async, [&] { return read(first); });
    ASSERT_TRUE(gate.waitForArrivals());
    auto waiting = std::async(std::launch::async, [&] {
        const foundation::InterruptScope scope(interrupts);
        return errnoFrom([&] { read(second); });
    });
    interrupts->request();
    EXPECT_EQ(waiting.get(), EIO);  // that it was interrupted is known to who asked for it
    gate.open();
    EXPECT_EQ(loading.get(), "0123456789");
    EXPECT_EQ(read(second), "0123456789");
    m_files->release(first);
    m_files->release(second);
}

}  // namespace

}  // namespace cloudfs::mount
