// SPDX-License-Identifier: Apache-2.0
#include "DiskBackedBufferFactory.hpp"
#include "EngineTest.hpp"
#include "MultipartUploadManager.hpp"
#include "OpenFileContext.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <stdexcept>
#include <thread>

namespace storage::cloudprovider::test {

class UploadManagerTest : public EngineTest {
protected:
    // Cannot be opened as often as it is told to.
    class UnreliableBuffer : public DiskBackedBuffer {
    public:
        explicit UnreliableBuffer(int failures) : DiskBackedBuffer(kPartSize), m_failures(failures) {}
        void open() override {
            if (m_failures-- > 0) {
                throw std::runtime_error("cannot be mapped");
            }
            DiskBackedBuffer::open();
        }

    private:
        int m_failures;
    };

    static std::shared_ptr<Buffer> buffer() { return DiskBackedBufferFactory().build(kPartSize); }

    static PartInfo part(std::uint64_t index) { return {index, index * kPartSize, kPartSize, ""}; }

    MultipartUploadManager::TagCallback recordTag(std::uint64_t index) {
        return [this, index](const std::string& tag) {
            auto info = part(index);
            info.Tag = tag;
            m_tagged.push_back(info);
        };
    }

    std::vector<PartInfo> m_tagged;
    MultipartUploadManager m_manager{
        std::make_shared<OpenFileContext>(m_file, m_client, std::make_unique<DiskBackedBufferFactory>())};
};

TEST_F(UploadManagerTest, NothingStartedMeansNothingToEnd) {
    m_manager.joinUploads();
    m_manager.complete({});
    m_manager.cancel();
    EXPECT_FALSE(m_manager.isActive());
    EXPECT_EQ(m_client->callCount(), 0U);
}

TEST_F(UploadManagerTest, TheUploadStartsOnceWithTheLastTagAndEndsOnce) {
    m_client->storeParts(m_key, std::string(2 * kPartSize, 'o'), {kPartSize, kPartSize});
    m_manager.setLastTag("first part's tag");
    m_manager.asyncUploadPart(part(0), buffer(), recordTag(0));
    m_manager.asyncReusePart(part(1), recordTag(1));
    m_manager.complete(m_tagged);
    m_manager.complete(m_tagged);
    m_manager.cancel();
    EXPECT_EQ(m_client->count("startMultipartUpload"), 1U);
    EXPECT_EQ(m_client->calls().front().detail, "first part's tag");
    EXPECT_EQ(m_client->count("completeMultipartUpload"), 1U);
    EXPECT_EQ(m_client->count("abortMultipartUpload"), 0U);
    EXPECT_EQ(m_client->content(m_key), std::string(kPartSize, '\0') + std::string(kPartSize, 'o'));
}

TEST_F(UploadManagerTest, ATaskThatFailsIsRunAgainBeforeLaterOnes) {
    struct Row {
        const char* name;
        const char* failingOperation;
        int failingOpens;
        bool callbackFails;
    };
    const Row rows[] = {{"start", "startMultipartUpload", 0, false},
                        {"client", "uploadPart", 0, false},
                        {"buffer", "", 1, false},
                        {"callback", "", 0, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        m_tagged.clear();
        if (*row.failingOperation != '\0') {
            m_client->failOperation(row.failingOperation);
        }
        bool callbackFails = row.callbackFails;
        const auto callback = [&](const std::string& tag) {
            if (std::exchange(callbackFails, false)) {
                throw std::runtime_error("callback");
            }
            recordTag(0)(tag);
        };
        EXPECT_ANY_THROW(
            m_manager.asyncUploadPart(part(0), std::make_shared<UnreliableBuffer>(row.failingOpens), callback));
        EXPECT_TRUE(m_manager.isActive());
        m_manager.asyncUploadPart(part(1), buffer(), recordTag(1));
        ASSERT_EQ(m_tagged.size(), 2U);
        EXPECT_EQ(m_tagged[0].Index, 0U);
        m_manager.complete(m_tagged);
        EXPECT_FALSE(m_manager.isActive());
    }
}

TEST_F(UploadManagerTest, TwoTasksOfOnePartNeverRunAtOnce) {
    auto& gate = m_client->gate("uploadPart");
    std::vector<int> order;
    std::thread first(
        [&] { m_manager.asyncUploadPart(part(0), buffer(), [&](const std::string&) { order.push_back(1); }); });
    ASSERT_TRUE(gate.waitForArrivals());
    m_manager.asyncUploadPart(part(0), buffer(), [&](const std::string&) { order.push_back(2); });
    EXPECT_EQ(m_client->count("uploadPart"), 1U) << "the second task waits for the first";
    gate.open();
    m_manager.joinUploads();
    first.join();
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    m_manager.cancel();
}

TEST_F(UploadManagerTest, CancellingForgetsTheUploadEvenIfTheClientFails) {
    m_manager.asyncUploadPart(part(0), buffer(), recordTag(0));
    m_client->failOperation("completeMultipartUpload");
    EXPECT_THROW(m_manager.complete(m_tagged), UnknownErrorException);
    m_client->failOperation("abortMultipartUpload", 1, CallControl::When::After);
    EXPECT_THROW(m_manager.cancel(), UnknownErrorException);
    m_manager.cancel();
    EXPECT_EQ(m_client->count("abortMultipartUpload"), 1U);
}

}  // namespace storage::cloudprovider::test
