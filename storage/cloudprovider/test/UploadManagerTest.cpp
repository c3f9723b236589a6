// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"
#include "buffers/DiskBackedBufferFactory.hpp"
#include "context/OpenFileContext.hpp"
#include "upload/MultipartUploadManager.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <stdexcept>
#include <thread>

namespace storage::cloudprovider::test {

class UploadManagerTest : public EngineTest {
protected:
    // What became of a part, as the upload saw it.
    struct PartState {
        PartInfo info;
        std::string bytes;
        int failingBegins = 0;
        bool isDone = false;     // nothing to transfer any more
        bool isChanged = false;  // while it is sent
        std::vector<std::string> tags{};
    };

    class Transfer final : public PartTransfer {
    public:
        explicit Transfer(PartState& state) : m_state(state) {}
        bool begin() override {
            if (m_state.failingBegins-- > 0) {
                throw std::runtime_error("cannot be mapped");
            }
            return !m_state.isDone;
        }
        void transfer(MultipartUploadManager& upload) override {
            m_state.tags.push_back(m_state.bytes.empty() ? upload.reusePart({m_state.info}).front().Tag
                                                         : upload.uploadPart(m_state.info, m_state.bytes.data()));
        }
        bool succeed() noexcept override { return false; }
        bool fail() noexcept override { return m_state.isChanged; }

    private:
        PartState& m_state;
    };

    static PartState part(std::uint64_t index, std::string bytes = std::string(kPartSize, 'n')) {
        return {{index, index * kPartSize, kPartSize, ""}, std::move(bytes)};
    }

    void upload(PartState& state) { m_manager->asyncUploadPart(state.info.Index, std::make_unique<Transfer>(state)); }

    static std::vector<PartInfo> records(const std::vector<const PartState*>& parts) {
        std::vector<PartInfo> result;
        for (const auto* state : parts) {
            result.push_back(state->info);
            result.back().Tag = state->tags.back();
        }
        return result;
    }

    const std::shared_ptr<MultipartUploadManager> m_manager = std::make_shared<MultipartUploadManager>(
        std::make_shared<OpenFileContext>(m_file, m_client, std::make_unique<DiskBackedBufferFactory>()));
};

TEST_F(UploadManagerTest, NothingStartedMeansNothingToEnd) {
    m_manager->joinUploads();
    m_manager->complete({}, ExpectedObject::anything());
    m_manager->cancel();
    EXPECT_FALSE(m_manager->isActive());
    EXPECT_EQ(m_client->callCount(), 0U);
}

TEST_F(UploadManagerTest, TheUploadStartsOnceWithTheLastTagAndEndsOnce) {
    m_client->storeParts(m_key, std::string(2 * kPartSize, 'o'), {kPartSize, kPartSize});
    m_manager->setLastTag("first part's tag");
    auto sent = part(0);
    auto reused = part(1, {});
    upload(sent);
    m_manager->asyncReusePart(1, std::make_unique<Transfer>(reused));
    const auto parts = records({&sent, &reused});
    m_manager->complete(parts, ExpectedObject::anything());
    m_manager->complete(parts, ExpectedObject::anything());
    m_manager->cancel();
    EXPECT_EQ(m_client->count("startMultipartUpload"), 1U);
    EXPECT_EQ(m_client->calls().front().detail, "first part's tag");
    EXPECT_EQ(m_client->count("completeMultipartUpload"), 1U);
    EXPECT_EQ(m_client->count("abortMultipartUpload"), 0U);
    EXPECT_EQ(m_client->content(m_key), std::string(kPartSize, 'n') + std::string(kPartSize, 'o'));
}

TEST_F(UploadManagerTest, ATaskThatFailsIsRunAgainBeforeLaterOnes) {
    struct Row {
        const char* name;
        const char* failingOperation;
        int failingBegins;
    };
    const Row rows[] = {{"start", "startMultipartUpload", 0}, {"client", "uploadPart", 0}, {"buffer", "", 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (*row.failingOperation != '\0') {
            m_client->failOperation(row.failingOperation);
        }
        auto first = part(0);
        auto second = part(1);
        first.failingBegins = row.failingBegins;
        m_client->clearCalls();
        EXPECT_ANY_THROW(upload(first));
        EXPECT_TRUE(m_manager->isActive());
        upload(second);
        EXPECT_EQ(first.tags.size(), 1U);
        EXPECT_EQ(m_client->calls().back().part.Index, 1U);
        m_manager->complete(records({&first, &second}), ExpectedObject::anything());
        EXPECT_FALSE(m_manager->isActive());
    }
}

TEST_F(UploadManagerTest, APartIsQueuedOnceAndNeverSentTwiceAtOnce) {
    auto& gate = m_client->gate("uploadPart");
    auto state = part(0);
    std::thread first([&] { upload(state); });
    ASSERT_TRUE(gate.waitForArrivals());
    upload(state);
    upload(state);
    EXPECT_EQ(m_client->count("uploadPart"), 1U) << "the second task waits for the first";
    gate.open();
    m_manager->joinUploads();
    first.join();
    EXPECT_EQ(state.tags.size(), 2U);
    m_manager->cancel();
}

TEST_F(UploadManagerTest, WhatNoLongerNeedsToBeSentIsNot) {
    auto state = part(0);
    state.isDone = true;
    upload(state);
    EXPECT_EQ(m_client->callCount(), 0U);
    EXPECT_FALSE(m_manager->isActive());
}

TEST_F(UploadManagerTest, TheFailureOfAPartThatWasChangedMeanwhileIsOnlyTheWriteBacks) {
    auto state = part(0);
    state.isChanged = true;
    m_client->failOperation("uploadPart", 1, CallControl::When::Before, CallControl::Repeat::Forever);
    upload(state);
    m_manager->rerunFailedUploads();
    EXPECT_EQ(m_client->count("uploadPart"), 1U) << "its change hands it over again";
    state.isChanged = false;
    EXPECT_THROW(upload(state), UnknownErrorException);
    state.isChanged = true;
    EXPECT_THROW(m_manager->joinUploads(), UnknownErrorException);
    m_manager->cancel();
    EXPECT_FALSE(m_manager->isActive()) << "the queue goes with the upload";
}

TEST_F(UploadManagerTest, CancellingForgetsTheUploadEvenIfTheClientFails) {
    auto state = part(0);
    upload(state);
    m_client->failOperation("completeMultipartUpload");
    EXPECT_THROW(m_manager->complete(records({&state}), ExpectedObject::anything()), UnknownErrorException);
    m_client->failOperation("abortMultipartUpload", 1, CallControl::When::After);
    EXPECT_THROW(m_manager->cancel(), UnknownErrorException);
    m_manager->cancel();
    EXPECT_EQ(m_client->count("abortMultipartUpload"), 1U);
}

}  // namespace storage::cloudprovider::test
