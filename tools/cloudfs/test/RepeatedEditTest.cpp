// SPDX-License-Identifier: Apache-2.0
#include "commands/RepeatedEdit.hpp"

#include "local/FileDescriptor.hpp"
#include "local/LocalSource.hpp"
#include "terminal/failures.hpp"
#include "terminal/interrupts.hpp"
#include "terminal/waitingIo.hpp"

#include <EngineTest.hpp>
#include <foundation/services/InterruptState.hpp>
#include <foundation/storage/provider/Exception.hpp>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

namespace cloudfs::commands {

namespace {

using foundation::OperationInterrupted;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;
using std::chrono::milliseconds;

class RepeatedEditTest : public ::testing::Test {
protected:
    RepeatedEditTest() { std::ofstream(m_file) << m_bytes; }

    storage::cloudprovider::test::ScopedTemporaryFolder m_folder;
    const std::string m_file = (m_folder.path() / "file").native();
    const std::string m_bytes = "some bytes to read";
};

std::string readAtMost(LocalSource& source, std::size_t size) {
    std::string bytes(size, '\0');
    bytes.resize(source.read(bytes.data(), size));
    return bytes;
}

void failInUse() {
    throw StreamFailure(ErrorCode::InUse, "/f", "replaced");
}

TEST_F(RepeatedEditTest, EveryAttemptReadsTheWholeSource) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
    const FileDescriptor readingEnd(pipe[0]);
    writeAll(pipe[1], "pipe", m_bytes);
    ::close(pipe[1]);
    for (const auto& path : {m_file, "/dev/fd/" + std::to_string(pipe[0])}) {
        SCOPED_TRACE(path);
        LocalSource source(path, LocalSource::Reading::Repeated);
        EXPECT_EQ(m_folder.fileCount(), 1U) << "what is kept has no name";
        int attempts = 0;
        RepeatedEdit(source).run([&](ProgressBar&) {
            EXPECT_EQ(readAtMost(source, 5), "some ");
            if (++attempts == 1) {
                failInUse();
            }
            std::string rest;
            for (auto bytes = readAtMost(source, 4); !bytes.empty(); bytes = readAtMost(source, 4)) {
                rest += bytes;
            }
            EXPECT_EQ(rest, m_bytes.substr(5));
            if (attempts == 2) {
                throw Exception(ErrorCode::InUse, StorageIRI(u"/f"));
            }
        });
        EXPECT_EQ(attempts, 3);
    }
}

TEST_F(RepeatedEditTest, OtherFailuresAndTheLimitEndIt) {
    LocalSource source(m_file, LocalSource::Reading::Repeated);
    const auto countAttempts = [&](milliseconds limit, const std::function<void()>& fail) {
        int attempts = 0;
        EXPECT_THROW(RepeatedEdit(source, limit).run([&](ProgressBar&) { ++attempts, fail(); }), std::exception);
        return attempts;
    };
    EXPECT_EQ(countAttempts(Patience::kLimit, [] { throw StreamFailure(ErrorCode::Unknown, "/f", ""); }), 1);
    EXPECT_EQ(countAttempts(Patience::kLimit, [] { throwLocalFailure("here", EBUSY); }), 1);
    EXPECT_EQ(countAttempts(milliseconds(0), failInUse), 1);
    EXPECT_GT(countAttempts(milliseconds(50), failInUse), 1);
}

TEST_F(RepeatedEditTest, AnInterruptEndsAPause) {
    LocalSource source(m_file, LocalSource::Reading::Repeated);
    // Not as watchInterrupts does it: there, a second one ends the process.
    const auto former = std::signal(SIGINT, [](int) { foundation::utInterruptState::RequestInterrupt(); });
    std::thread user([thread = ::pthread_self()] { ::pthread_kill(thread, SIGINT); });
    EXPECT_THROW(pauseFor(std::chrono::hours(1)), OperationInterrupted);
    user.join();
    int attempts = 0;
    EXPECT_THROW(RepeatedEdit(source).run([&](ProgressBar&) { ++attempts, failInUse(); }), OperationInterrupted);
    EXPECT_EQ(attempts, 1);
    foundation::utInterruptState::ClearInterrupt();
    std::signal(SIGINT, former);
}

}  // namespace

}  // namespace cloudfs::commands
