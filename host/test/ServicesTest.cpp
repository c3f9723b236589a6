// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/Environment.hpp>
#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/Files.hpp>
#include <foundation/services/InterruptState.hpp>
#include <foundation/services/Text.hpp>

#include <gtest/gtest.h>
#include <boost/filesystem/operations.hpp>

#include <cstdlib>
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
    const auto first = createTemporaryFile("part");
    const auto second = createTemporaryFile("part");
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

TEST_F(ServicesTest, TheTemporaryFolderFollowsTheEnvironment) {
    EXPECT_EQ(getEnvironment(u"TMPDIR"), toUtf16(m_folder.native()));
    ::setenv("TMPDIR", (m_folder / "missing").c_str(), 1);
    EXPECT_THROW(createTemporaryFile("part"), std::system_error);
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
