// SPDX-License-Identifier: Apache-2.0
#include "AllocationFaults.hpp"
#include "EngineTest.hpp"

#include <storage/cloudprovider/openSequentialWriter.hpp>
#include <storage/cloudprovider/resizeStream.hpp>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace storage::cloudprovider::test {

namespace {

using foundation::storage::provider::ReplacementPolicy;
using When = CallControl::When;
using Repeat = CallControl::Repeat;

struct Fault {
    const char* name;
    When when;
    Repeat repeat;
    bool isAllocation = false;  // else a call of the client
};

constexpr Fault kFaults[] = {{"call, before", When::Before, Repeat::Once},
                             {"call, after", When::After, Repeat::Once},
                             {"calls from there, before", When::Before, Repeat::Forever},
                             {"allocation", When::Before, Repeat::Once, true}};

// Has the nth call, or allocation of this thread, fail while it lives.
class Injection {
public:
    Injection(FakeCloudClient& client, const Fault& fault, std::size_t nth)
        : m_client(client), m_faultsBefore(client.faultCount()) {
        if (fault.isAllocation) {
            AllocationFaults::failNth(nth);
        } else {
            m_client.failCall(nth, fault.when, fault.repeat);
        }
    }
    Injection(const Injection&) = delete;
    Injection& operator=(const Injection&) = delete;
    ~Injection() { AllocationFaults::reset(); }

    bool hasHappened() const { return AllocationFaults::hasFailed() || m_client.faultCount() != m_faultsBefore; }

private:
    FakeCloudClient& m_client;
    const std::size_t m_faultsBefore;
};

// Whether the step threw nothing.
template <typename Step>
bool attempt(Step step) {
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
    FaultSweepTest() { allowLeftDescriptors(); }

    struct Scenario {
        const char* name;
        std::vector<std::uint64_t> storedParts;  // sizes; one: stored whole, none: absent
        std::uint64_t writeAt;
        std::string written;
        bool discards = false;
        bool isSequential = false;
        std::optional<std::uint64_t> resizedTo{};
    };

    static std::string expectedContent(const Scenario& scenario, std::string content) {
        if (scenario.discards) {
            content.clear();
        }
        content.resize(std::max<std::size_t>(content.size(), scenario.writeAt + scenario.written.size()), '\0');
        content.replace(scenario.writeAt, scenario.written.size(), scenario.written);
        content.resize(scenario.resizedTo.value_or(content.size()), '\0');
        return content;
    }

    // Writes on where a failed write got to, once. Whether all bytes were taken and the closing succeeded; nothing when
    // the file could not even be opened.
    std::optional<bool> writeAndClose(const Scenario& scenario) {
        Stream stream;
        const bool isOpened = attempt([&] {
            stream = scenario.isSequential ? openSequentialWriter(*m_provider, m_file)
                                           : openFile(scenario.discards ? replace() : update());
        });
        if (!isOpened) {
            return std::nullopt;
        }
        std::size_t taken = 0;  // of a sequential writer, which cannot be told anything twice
        const auto writeAll = [&] {
            if (!scenario.isSequential) {
                stream->seek(static_cast<std::int64_t>(scenario.writeAt), std::ios_base::beg);
                write(stream, scenario.written);
                if (scenario.resizedTo) {
                    resizeStream(*stream, *scenario.resizedTo);
                }
            }
            while (scenario.isSequential && taken < scenario.written.size()) {
                const auto left = scenario.written.substr(taken);
                taken += static_cast<std::size_t>(stream->write(left.data(), static_cast<std::int64_t>(left.size())));
            }
        };
        const bool isWritten = attempt(writeAll) || attempt(writeAll);
        return attempt([&] { stream->close(); }) && isWritten;
    }

    void storeOld(const Scenario& scenario, const std::string& content) {
        if (scenario.storedParts.size() > 1) {
            m_client->storeParts(m_key, content, scenario.storedParts);
        } else if (!scenario.storedParts.empty()) {
            m_client->store(m_key, content);
        }
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
        if (fault.repeat == Repeat::Once && (fault.isAllocation || !isUploadIdLost)) {
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
        {"discarded", {8, 8, 3}, 0, "0123456789", true},
        {"one part, sequentially", {8, 8, 3}, 0, "01234567", true, true},
        {"cut inside a part", {8, 8, 8, 3}, 18, "XY", false, false, 13},
        {"cut to the part that was written", {8, 8, 3}, 0, "XY", false, false, 8},
        {"cut behind a part that was not", {8, 8, 3}, 17, "X", false, false, 8},
        {"zeros at the end", {8, 3}, 1, "X", false, false, 30},
        {"several parts, sequentially", {8, 8, 3}, 0, "0123456789abcdefghijklmnopqrstuvw", true, true},
    };
    const std::pair<bool, std::uint32_t> kinds[] = {{false, 0}, {true, 0}, {false, 1}, {true, 4}};
    for (const auto& [tellsVersions, threads] : kinds) {
        m_options.transferThreads = threads;
        for (const auto& scenario : scenarios) {
            for (const auto& fault : kFaults) {
                // The allocations of the calling thread are the same with a pool: one in seven will do.
                const std::size_t stride = fault.isAllocation && threads != 0 ? 7 : 1;
                for (std::size_t nth = 1;; nth += stride) {
                    SCOPED_TRACE(std::string(scenario.name) + (tellsVersions ? ", versions, " : ", plain, ") +
                                 std::to_string(threads) + " threads" + ", " + fault.name + ' ' + std::to_string(nth));
                    startAnew(tellsVersions);
                    std::uint64_t size = 0;
                    for (const auto part : scenario.storedParts) {
                        size += part;
                    }
                    const std::string oldContent = std::string("old content of the file, thirty").substr(0, size);
                    const auto newContent = expectedContent(scenario, oldContent);
                    storeOld(scenario, oldContent);
                    std::optional<bool> isOk;
                    bool isOver = false;
                    {
                        const Injection injection(*m_client, fault, nth);
                        isOk = writeAndClose(scenario);
                        isOver = !injection.hasHappened();
                    }
                    ASSERT_TRUE(isOk == true || !isOver) << "failed without a fault";
                    const auto old = size != 0 ? std::optional(oldContent) : std::nullopt;
                    ASSERT_FALSE(isOpen());
                    // What was never handed out has changed nothing.
                    checkAfterwards(old, isOk ? newContent : oldContent, isOk == true, fault, nth);
                    ASSERT_EQ(m_folder.fileCount(), 0U);
                    ASSERT_FALSE(HasFailure());
                    if (isOver) {
                        break;
                    }
                }
            }
        }
    }
    startAnew();  // uploads that could not even be aborted went with the others
}

TEST_F(FaultSweepTest, AReadEitherDeliversTheBytesOrFails) {
    const std::string content = "0123456789abcdefghijklmnopq";
    m_client->storeParts(m_key, content, {8, 8, 8, 3});
    for (const auto& fault : kFaults) {
        for (std::size_t nth = 1;; ++nth) {
            SCOPED_TRACE(std::string(fault.name) + ' ' + std::to_string(nth));
            m_client->clearFaults();
            std::string bytes;
            bool isOk = false;
            bool isOver = false;
            {
                const Injection injection(*m_client, fault, nth);
                isOk = attempt([&] { bytes = readAll(openForReading()); });
                isOver = !injection.hasHappened();
            }
            EXPECT_TRUE(isOk == isOver || fault.isAllocation);  // not every allocation is needed
            EXPECT_EQ(bytes, isOk ? content : std::string());
            EXPECT_EQ(m_folder.fileCount(), 0U);
            ASSERT_FALSE(HasFailure());
            if (isOver) {
                break;
            }
        }
    }
    m_client->clearFaults();
}

// Copies, moves and listings meet only allocations here: for calls of the client see NamespaceTest.
TEST_F(FaultSweepTest, WithoutMemoryNothingIsLostByTransfersAndListings) {
    allowViolations();
    const std::string content = "more than two parts";
    const IRI other(u"/other");
    enum class What { Copy, Move, List };
    struct Row {
        What what;
        TransferMode mode;
    };
    const auto modes = transferModes();
    const Row rows[] = {{What::List, modes[0]}, {What::Copy, modes[0]}, {What::Copy, modes[3]},
                        {What::Move, modes[0]}, {What::Move, modes[2]}, {What::Move, modes[3]}};
    for (const auto& row : rows) {
        const auto what = row.what;
        const auto& mode = row.mode;
        for (std::size_t nth = 1;; ++nth) {
            SCOPED_TRACE(std::string(mode.name) + ", " + std::to_string(static_cast<int>(what)) + ", allocation " +
                         std::to_string(nth));
            startAnew(true, mode.options);
            m_client->storeParts(m_key, content, {8, 8, 3});
            m_client->store("other", "old");
            bool isOk = false;
            bool isOver = false;
            std::size_t listed = 0;
            {
                const Injection injection(*m_client, kFaults[3], nth);
                isOk = attempt([&] {
                    if (what == What::Copy) {
                        m_provider->copyFile(m_file, other, ReplacementPolicy::Replace);
                    } else if (what == What::Move) {
                        m_provider->moveFile(m_file, other, ReplacementPolicy::Replace);
                    } else {
                        for (auto entries = m_provider->listAllRecursive(IRI(u"/")); entries->hasNext(); ++listed) {
                            entries->next();
                        }
                    }
                });
                isOver = !injection.hasHappened();
            }
            ASSERT_TRUE(isOk || !isOver) << "failed without a fault";
            EXPECT_TRUE(listed == 3 || what != What::List || !isOk);
            const auto source = m_client->content(m_key);
            const auto destination = m_client->content("other");
            // Where the source of a move goes before the destination is stored, that may fail then.
            const bool mayLose = what == What::Move && !mode.storesFirst() && !isOk;
            EXPECT_TRUE(source == content || (what == What::Move && destination == content) || mayLose);
            // Such a move that fails half-way stores what was copied.
            const bool isPiece = mayLose && content.compare(0, destination->size(), *destination) == 0;
            EXPECT_TRUE(destination == "old" || destination == content || isPiece) << *destination;
            EXPECT_TRUE(!isOk || what == What::List || destination == content);
            EXPECT_EQ(m_client->openUploads(), 0U);
            EXPECT_EQ(m_folder.fileCount(), 0U);
            ASSERT_FALSE(HasFailure());
            if (isOver) {
                break;
            }
        }
    }
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
