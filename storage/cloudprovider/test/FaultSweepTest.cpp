// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"

#include <storage/cloudprovider/buildCloudProvider.hpp>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace storage::cloudprovider::test {

namespace {

using When = CallControl::When;
using Repeat = CallControl::Repeat;

struct Fault {
    const char* name;
    When when;
    Repeat repeat;
};

constexpr Fault kFaults[] = {{"before the call", When::Before, Repeat::Once},
                             {"after the call", When::After, Repeat::Once},
                             {"before all calls from there", When::Before, Repeat::Forever}};

// Whether the step threw nothing.
bool attempt(const std::function<void()>& step) {
    try {
        step();
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

class FaultSweepTest : public EngineTest {
protected:
    struct Scenario {
        const char* name;
        std::vector<std::uint64_t> storedParts;  // sizes; one: stored whole, none: absent
        std::uint64_t writeAt;
        std::string written;
    };

    static std::string expectedContent(const Scenario& scenario, std::string content) {
        content.resize(std::max<std::size_t>(content.size(), scenario.writeAt + scenario.written.size()), '\0');
        return content.replace(scenario.writeAt, scenario.written.size(), scenario.written);
    }

    // Writes on where a failed write got to, once. Whether all bytes were taken and the closing succeeded.
    bool writeAndClose(const Scenario& scenario) {
        Stream stream;
        if (!attempt([&] { stream = openFile(update()); })) {
            return false;
        }
        stream->seek(static_cast<std::int64_t>(scenario.writeAt), std::ios_base::beg);
        const auto writeRest = [&] {
            const auto position = static_cast<std::uint64_t>(stream->seek(0, std::ios_base::cur));
            write(stream, scenario.written.substr(position - scenario.writeAt));
        };
        const bool isWritten = attempt(writeRest) || attempt(writeRest);
        return attempt([&] { stream->close(); }) && isWritten;
    }

    void checkAfterwards(const std::optional<std::string>& oldContent, const std::string& newContent, bool isOk,
                         const Fault& fault, std::size_t nth) {
        const auto content = m_client->content(m_key);
        if (isOk) {
            EXPECT_EQ(content, newContent) << "a success that stored something else";
        } else {
            EXPECT_TRUE(content == oldContent || content == newContent)
                << "a mixture: " << content.value_or("(absent)");
        }
        const auto calls = m_client->calls();
        const bool isUploadIdLost =
            fault.when == When::After && nth <= calls.size() && calls[nth - 1].operation == "startMultipartUpload";
        if (fault.repeat == Repeat::Once && !isUploadIdLost) {
            EXPECT_EQ(m_client->openUploads(), 0U);
        }
        m_client->clearFaults();
        if (content) {
            EXPECT_EQ(readAll(openForReading()), *content) << "the file cannot be read back";
        }
    }
};

TEST_F(FaultSweepTest, AWriteEitherSucceedsOrFailsAsAWhole) {
    // A client whose answer was lost is asked again, or asked to abort what it completed: no breach here.
    allowViolations();
    const Scenario scenarios[] = {
        {"new one-part file", {}, 0, "abc"},
        {"new file of several parts", {}, 0, "abcdefghijklmnopqrstuvwxyz"},
        {"change in a one-part file", {6}, 2, "XY"},
        {"one-part file grows to three", {6}, 5, "0123456789abcdef"},
        {"one part of four changes", {8, 8, 8, 3}, 10, "XY"},
        {"the last part grows", {8, 8, 8, 3}, 27, "0123456789"},
        {"a gap behind the end", {8, 3}, 30, "end"},
    };
    for (const auto& scenario : scenarios) {
        for (const auto& fault : kFaults) {
            for (std::size_t nth = 1;; ++nth) {
                SCOPED_TRACE(std::string(scenario.name) + ", " + fault.name + ", call " + std::to_string(nth));
                m_client = std::make_shared<FakeCloudClient>();
                m_provider = buildCloudProvider(m_client, FolderPolicy::MarkerObjects, false);
                std::uint64_t size = 0;
                for (const auto part : scenario.storedParts) {
                    size += part;
                }
                const std::string oldContent = std::string("old content of the file, thirty").substr(0, size);
                if (scenario.storedParts.size() > 1) {
                    m_client->storeParts(m_key, oldContent, scenario.storedParts);
                } else if (size != 0) {
                    m_client->store(m_key, oldContent);
                }
                m_client->failCall(nth, fault.when, fault.repeat);
                const bool isOk = writeAndClose(scenario);
                const bool isOver = m_client->faultCount() == 0;
                ASSERT_TRUE(isOk || !isOver) << "failed without a fault";
                checkAfterwards(m_client->faultCount() == 0 || size != 0 ? std::optional(oldContent) : std::nullopt,
                                expectedContent(scenario, oldContent), isOk, fault, nth);
                ASSERT_FALSE(HasFailure());
                if (isOver) {
                    break;
                }
            }
        }
    }
    m_client = std::make_shared<FakeCloudClient>();  // uploads that could not even be aborted went with the others
}

TEST_F(FaultSweepTest, AReadEitherDeliversTheBytesOrFails) {
    const std::string content = "0123456789abcdefghijklmnopq";
    m_client->storeParts(m_key, content, {8, 8, 8, 3});
    for (const auto& fault : kFaults) {
        for (std::size_t nth = 1;; ++nth) {
            SCOPED_TRACE(std::string(fault.name) + ", call " + std::to_string(nth));
            m_client->clearFaults();
            const auto before = m_client->faultCount();
            m_client->failCall(nth, fault.when, fault.repeat);
            std::string bytes;
            const bool isOk = attempt([&] { bytes = readAll(openForReading()); });
            const bool isOver = m_client->faultCount() == before;
            EXPECT_EQ(isOk, isOver);
            EXPECT_EQ(bytes, isOk ? content : std::string());
            ASSERT_FALSE(HasFailure());
            if (isOver) {
                break;
            }
        }
    }
    m_client->clearFaults();
}

// The same stream gets the bytes once the store answers again: a failed part is fetched anew.
TEST_F(FaultSweepTest, AStreamReadsOnAfterAFailure) {
    m_client->storeParts(m_key, "0123456789abcdef", {8, 8});
    const auto stream = openForReading();
    m_client->failOperation("getObject");
    char byte = 0;
    EXPECT_THROW(stream->read(&byte, 1), foundation::storage::provider::ByteStreamReadFailure);
    EXPECT_EQ(readAll(stream), "0123456789abcdef");
}

}  // namespace storage::cloudprovider::test
