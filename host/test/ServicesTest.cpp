// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/Environment.hpp>
#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/Files.hpp>
#include <foundation/services/InterruptScope.hpp>
#include <foundation/services/InterruptState.hpp>
#include <foundation/services/PrivateFolder.hpp>
#include <foundation/services/Text.hpp>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <boost/filesystem/operations.hpp>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <system_error>
#include <thread>

namespace foundation {

namespace {

namespace fs = boost::filesystem;

// Each test has a temporary folder of its own.
class ServicesTest : public ::testing::Test {
protected:
    ServicesTest() {
        fs::create_directory(m_folder);
        ::setenv("TMPDIR", m_folder.c_str(), 1);
    }
    ~ServicesTest() override {
        ::unsetenv("TMPDIR");
        fs::remove_all(m_folder);
    }

    const fs::path m_folder = "/tmp" / fs::unique_path();
};

TEST_F(ServicesTest, TemporaryFilesAreFreshAndTheirOwnersOnly) {
    const auto first = createTemporaryFile(temporaryFolder(), "part");
    const auto second = createTemporaryFile(temporaryFolder(), "part");
    EXPECT_NE(first, second);
    EXPECT_EQ(first.parent_path(), m_folder);
    EXPECT_EQ(first.filename().native().rfind("part", 0), 0U);
    EXPECT_EQ(fs::status(first).permissions(), fs::owner_read | fs::owner_write);
    EXPECT_EQ(fs::file_size(first), 0U);
    reserveBlocks(first, 0, 10'000);
    EXPECT_GE(fs::file_size(first), 10'000U);
    EXPECT_THROW(reserveBlocks(first, 0, UINT64_MAX), std::system_error);
    removeFile(first);
    EXPECT_FALSE(fs::exists(first));
    EXPECT_THROW(removeFile(first), fs::filesystem_error);
    EXPECT_THROW(reserveBlocks(first, 0, 1), std::system_error);
}

TEST_F(ServicesTest, APrivateFolderLastsAsLongAsItIsHeld) {
    auto folder = PrivateFolder::hold("mine.");
    EXPECT_TRUE(fs::is_empty(m_folder)) << "made when it is needed";
    const auto file = folder->createFile();
    EXPECT_EQ(PrivateFolder::hold("mine.")->createFile().parent_path(), file.parent_path());
    EXPECT_EQ(file.parent_path().parent_path(), m_folder);
    EXPECT_EQ(fs::status(file.parent_path()).permissions(), fs::owner_all);
    EXPECT_EQ(fs::status(file).permissions(), fs::owner_read | fs::owner_write);
    fs::remove_all(file.parent_path());
    const auto again = folder->createFile();
    EXPECT_TRUE(fs::exists(again)) << "somebody tidies the folder of temporary files up";
    removeFile(again);
    folder.reset();
    EXPECT_TRUE(fs::is_empty(m_folder));
}

// A process that ends without a word, or one that goes on until it is told to end.
class OtherProcess {
public:
    explicit OtherProcess(const std::function<void()>& action) {
        EXPECT_EQ(::pipe(m_ready.data()), 0);
        m_process = ::fork();
        if (m_process == 0) {
            action();
            ::close(m_ready[1]);
            ::pause();
        }
        ::close(m_ready[1]);
        char nothing = 0;
        EXPECT_EQ(::read(m_ready[0], &nothing, 1), 0);
        ::close(m_ready[0]);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;
    ~OtherProcess() {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
    }

private:
    std::array<int, 2> m_ready{};
    pid_t m_process = -1;
};

TEST_F(ServicesTest, WhatKilledProcessesLeftInPrivateFoldersIsDeletedByTheNext) {
    const auto makeHeldFile = [] {
        static const auto folder = PrivateFolder::hold("mine.");
        folder->createFile();
    };
    { const OtherProcess killed(makeHeldFile); }
    ASSERT_EQ(std::distance(fs::directory_iterator(m_folder), {}), 1);

    // What only looks like it is not touched.
    const auto dear = m_folder / "dear";
    fs::create_directory(dear);
    const auto bystander = dear / "file.abcdef";
    std::ofstream(bystander.native()) << "x";
    fs::create_symlink(dear, m_folder / "mine.linked");
    fs::create_directory(m_folder / "mine.backups");
    std::ofstream((m_folder / "mine.backups/file.abcdef").native()) << "x";
    fs::create_directory(m_folder / "mine.others");
    std::ofstream((m_folder / "mine.others/notes").native()) << "x";

    const OtherProcess alive(makeHeldFile);
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder), {}), 5) << "the killed one's has gone";
    const auto folder = PrivateFolder::hold("mine.");
    folder->createFile();
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder), {}), 6) << "that of the one alive has not";
    EXPECT_TRUE(fs::exists(bystander));
    EXPECT_TRUE(fs::exists(m_folder / "mine.backups/file.abcdef"));
    EXPECT_TRUE(fs::exists(m_folder / "mine.others/notes"));
}

TEST_F(ServicesTest, TheTemporaryFolderFollowsTheEnvironment) {
    EXPECT_EQ(getEnvironment(u"TMPDIR"), toUtf16(m_folder.native()));
    ::setenv("TMPDIR", (m_folder / "missing").c_str(), 1);
    EXPECT_THROW(createTemporaryFile(temporaryFolder(), "part"), std::system_error);
    ::setenv("TMPDIR", "", 1);
    EXPECT_EQ(getEnvironment(u"TMPDIR"), u"");
    EXPECT_EQ(temporaryFolder(), "/tmp");
    ::unsetenv("TMPDIR");
    EXPECT_FALSE(getEnvironment(u"TMPDIR"));
    EXPECT_EQ(temporaryFolder(), "/tmp");
}

TEST(InterruptStateTest, AnInterruptStaysPendingForAllThreadsUntilItIsCleared) {
    EXPECT_NO_THROW(utInterruptState::ThrowIfInterruptPending());
    std::thread([] { utInterruptState::RequestInterrupt(); }).join();
    EXPECT_THROW(utInterruptState::ThrowIfInterruptPending(), OperationInterrupted);
    EXPECT_THROW(utInterruptState::ThrowIfInterruptPending(), OperationInterrupted);
    utInterruptState::ClearInterrupt();
    EXPECT_NO_THROW(utInterruptState::ThrowIfInterruptPending());
}

TEST(InterruptScopeTest, ARequestReachesTheThreadsInItsScopeAlone) {
    const auto all = std::make_shared<InterruptSource>();
    const auto source = std::make_shared<InterruptSource>(all);
    source->request();
    EXPECT_NO_THROW(throwIfInterrupted());
    {
        const InterruptScope scope(source);
        EXPECT_THROW(throwIfInterrupted(), OperationInterrupted);
        std::thread([] { EXPECT_NO_THROW(throwIfInterrupted()); }).join();
        const InterruptScope none(nullptr);
        EXPECT_NO_THROW(throwIfInterrupted());
    }
    EXPECT_NO_THROW(throwIfInterrupted());
    EXPECT_FALSE(all->isRequested());
    const InterruptSource other(all);
    EXPECT_FALSE(other.isRequested());
    all->request();
    EXPECT_TRUE(other.isRequested());
}

TEST(ExecutionContextTest, EachThreadSaysForItself) {
    EXPECT_FALSE(isMainExecutionContext());
    setMainExecutionContext(true);
    std::thread([] { EXPECT_FALSE(isMainExecutionContext()); }).join();
    EXPECT_TRUE(isMainExecutionContext());
    setMainExecutionContext(false);
    EXPECT_FALSE(isMainExecutionContext());
}

}  // namespace

}  // namespace foundation
