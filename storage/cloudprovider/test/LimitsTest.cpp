// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"
#include "ScopedMainContext.hpp"
#include "upload/PartSizes.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/openSequentialWriter.hpp>
#include <storage/cloudprovider/resizeStream.hpp>
#include <storage/cloudprovider/testing/VersionedFakeClient.hpp>

#include <algorithm>
#include <functional>
#include <future>
#include <random>
#include <utility>
#include <vector>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ReplacementPolicy;

// Stores that do not take everything.
class LimitsTest : public EngineTest {
protected:
    void startWith(const StoreLimits& limits) {
        FakeCloudClient::Options options;
        options.limits = limits;
        m_client = std::make_shared<FakeCloudClient>(options);
        m_providersClient = std::make_shared<VersionedFakeClient>(m_client);
        m_provider = buildCloudProvider(m_providersClient, FolderPolicy::MarkerObjects, false, m_options);
    }

    std::vector<std::uint64_t> sentSizes() const {
        std::vector<std::pair<std::uint64_t, std::uint64_t>> sizes;
        for (const auto& call : m_client->calls()) {
            if (call.operation == "uploadPart") {
                sizes.emplace_back(call.part.Index, call.part.Size);
            }
        }
        std::sort(sizes.begin(), sizes.end());
        std::vector<std::uint64_t> result(sizes.size());
        std::transform(sizes.begin(), sizes.end(), result.begin(), [](const auto& part) { return part.second; });
        return result;
    }
};

TEST_F(LimitsTest, PartsGrowWhereTheStoreTakesFewUpToTheLargestObject) {
    StoreLimits limits;
    limits.MostParts = 20;
    limits.LargestPart = 64;
    limits.LargestObject = 300;
    const std::string bytes = std::string(150, 'a') + std::string(150, 'b');
    for (const bool isSequential : {false, true}) {
        for (const std::size_t piece : {7U, 300U}) {
            SCOPED_TRACE(testing::Message() << (isSequential ? "sequentially" : "anyhow") << " by " << piece);
            startWith(limits);
            const auto stream = isSequential ? openSequentialWriter(*m_provider, m_file) : openFile(replace());
            for (std::size_t at = 0; at < bytes.size(); at += piece) {
                write(stream, bytes.substr(at, piece));
            }
            EXPECT_EQ(errorCodeOf([&] { stream->write("x", 1); }), ErrorCode::Unsupported);
            stream->close();
            EXPECT_EQ(m_client->content(m_key), bytes);
            EXPECT_EQ(sentSizes(), (std::vector<std::uint64_t>{8, 16, 32, 64, 64, 64, 52}));
        }
    }
    const auto stream = openFile(update());
    stream->seek(300, std::ios_base::beg);
    EXPECT_EQ(errorCodeOf([&] { stream->write("x", 1); }), ErrorCode::Unsupported);
    stream->close();

    m_client->storeParts(m_key, "0123456789", {5, 5});
    m_client->clearCalls();
    const auto growing = openFile(update());
    growing->seek(50, std::ios_base::beg);  // the stored parts first, then those that are added
    write(growing, "x");
    growing->close();
    EXPECT_EQ(m_client->content(m_key), "0123456789" + std::string(40, '\0') + "x");
    EXPECT_EQ(sentSizes(), (std::vector<std::uint64_t>{8, 8, 16, 14})) << "the last stored part, then as in a new file";
}

TEST_F(LimitsTest, AResizedFileKeepsToTheLimitsAndToItsLayout) {
    StoreLimits limits;
    limits.MostParts = 20;
    limits.LargestPart = 64;
    limits.LargestObject = 500;
    const std::vector<std::uint64_t> manyParts(15, 8);
    struct Row {
        const char* name;
        bool isThere;
        std::uint64_t cut;
        std::uint64_t grown;
        std::optional<ErrorCode> failure;
        std::vector<std::uint64_t> sent;
    };
    const Row rows[] = {
        {"too large", false, 0, 501, ErrorCode::Unsupported, {}},
        {"too many parts", true, 120, 500, ErrorCode::Unsupported, {}},
        {"of a new file", false, 0, 500, std::nullopt, {8, 16, 32, 64, 64, 64, 64, 64, 64, 60}},
        {"of a new file that was cut", false, 60, 150, std::nullopt, {8, 16, 32, 64, 30}},
        {"cut to nothing", true, 0, 500, std::nullopt, {8, 16, 32, 64, 64, 64, 64, 64, 64, 60}},
        {"cut to few parts", true, 9, 500, std::nullopt, {8, 8, 16, 32, 64, 64, 64, 64, 64, 64, 44}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        startWith(limits);
        if (row.isThere) {
            m_client->storeParts(m_key, std::string(120, 's'), manyParts);
        }
        const auto stream = openFile(row.isThere ? update() : replace());
        if (!row.isThere) {
            resizeStream(*stream, 300);
        }
        resizeStream(*stream, row.cut);
        m_client->clearCalls();
        EXPECT_EQ(errorCodeOf([&] { resizeStream(*stream, row.grown); }), row.failure);
        EXPECT_EQ(m_client->callCount(), 0U);
        const auto size = row.failure ? row.cut : row.grown;
        EXPECT_EQ(stream->seek(0, std::ios_base::end), std::streampos(static_cast<std::streamoff>(size)));
        stream->close();
        const auto kept = std::min<std::uint64_t>(row.isThere ? row.cut : 0, 120);
        EXPECT_EQ(m_client->content(m_key), std::string(kept, 's') + std::string(size - kept, '\0'));
        if (!row.failure) {
            EXPECT_EQ(sentSizes(), row.sent);
        }
    }
}

// A store may take larger parts of an upload than it takes in one go.
TEST_F(LimitsTest, AFileThatIsCutToOneLargePartIsUploaded) {
    StoreLimits limits;
    limits.LargestPut = 6;
    startWith(limits);
    m_client->storeParts(m_key, std::string(40, 's'), {20, 20});
    const auto stream = openFile(update());
    resizeStream(*stream, 18);
    stream->close();
    EXPECT_EQ(m_client->content(m_key), std::string(18, 's'));
}

TEST_F(LimitsTest, AWriteThatGoesBeyondTheLargestObjectSendsAndTakesNothing) {
    StoreLimits limits;
    limits.LargestObject = 20;
    limits.LargestPut = 6;
    startWith(limits);
    m_client->storeParts("folder/stored", "012345678", {5, 4});
    for (const char16_t* const path : {u"/folder/file", u"/folder/stored"}) {
        for (const bool isSequential : {false, true}) {
            const IRI file(path);
            const auto stream = isSequential ? openSequentialWriter(*m_provider, file)
                                             : m_provider->openStream(file, update(Options::WriteMode::Append));
            m_client->clearCalls();
            EXPECT_EQ(errorCodeOf([&] { write(stream, std::string(21, 'x')); }), ErrorCode::Unsupported);
            EXPECT_EQ(m_client->callCount(), 0U);
            const auto size = isSequential ? std::streamoff{0} : std::streamoff{stream->seek(0, std::ios_base::end)};
            write(stream, std::string(static_cast<std::size_t>(20 - size), 'y'));
            EXPECT_EQ(errorCodeOf([&] { write(stream, "x"); }), ErrorCode::Unsupported);
            stream->close();
            EXPECT_EQ(m_provider->getFileAttributes(file).getSize().value(), 20U);
            m_provider->removeFile(file);
            m_client->storeParts("folder/stored", "012345678", {5, 4});
        }
    }
}

TEST_F(LimitsTest, TheLargestObjectOfS3FitsIntoItsParts) {
    constexpr std::uint64_t kMiB = 1024 * 1024;
    StoreLimits limits;  // AWS S3 user guide, multipart upload limits
    limits.SmallestPart = 5 * kMiB;
    limits.LargestPart = 5 * 1024 * kMiB;
    limits.MostParts = 10'000;
    limits.LargestObject = 5 * 1024 * 1024 * kMiB;
    for (const std::uint64_t firstIndex : {0U, 1U, 9'000U, 9'999U}) {
        SCOPED_TRACE(firstIndex);
        const PartSizes sizes(1, limits, firstIndex);
        std::mt19937_64 random(firstIndex);  // NOLINT(cert-msc51-cpp): repeatable on purpose
        std::uint64_t offset = 0;
        std::uint64_t index = firstIndex;
        for (; index < limits.MostParts && offset < limits.LargestObject; ++index) {
            const auto capacity = sizes.capacityOf(index, offset, "key");
            ASSERT_EQ(capacity % kMiB, 0U);
            ASSERT_GE(capacity, limits.SmallestPart);
            ASSERT_LE(capacity, limits.LargestPart);
            for (const auto inside : {std::uint64_t{0}, random() % capacity, capacity - 1}) {
                ASSERT_EQ(sizes.indexBehind(firstIndex, offset + inside), index);
            }
            offset += capacity;
        }
        EXPECT_TRUE(firstIndex > 1 || offset == limits.LargestObject) << offset;
        EXPECT_THROW(sizes.capacityOf(index, offset, "key"), UnsupportedOperationException);
    }
}

TEST_F(LimitsTest, KeysThatAreTooLongAreRefusedBeforeAnythingIsStored) {
    StoreLimits limits;
    limits.LongestKey = 11;
    m_options.copyInStore = true;
    startWith(limits);
    const IRI fits(u"/folder/file");
    const IRI tooLong(u"/folder/files");
    write(openFile(replace()), "x");
    const std::pair<const char*, std::function<void()>> refused[] = {
        {"openStream", [&] { m_provider->openStream(tooLong, replace()); }},
        {"openSequentialWriter", [&] { openSequentialWriter(*m_provider, tooLong); }},
        {"createFile", [&] { m_provider->createFile(tooLong); }},
        {"createFolder", [&] { m_provider->createFolder(IRI(u"/folder/fold")); }},
        {"copyFile", [&] { m_provider->copyFile(fits, tooLong, ReplacementPolicy::Fail); }},
    };
    for (const auto& [name, action] : refused) {
        SCOPED_TRACE(name);
        EXPECT_EQ(errorCodeOf(action), ErrorCode::InvalidLocation);
    }
    m_client->clearCalls();
    EXPECT_EQ(errorCodeOf([&] { m_provider->openStream(tooLong, update()); }), ErrorCode::InvalidLocation);
    EXPECT_EQ(m_client->callCount(), 0U) << "a store may take it for another error";
    EXPECT_FALSE(m_provider->fileExists(tooLong));
}

TEST_F(LimitsTest, BeforeEachBatchRemovalsLookForOpenFilesAndInterrupts) {
    StoreLimits limits;
    limits.DeletedAtOnce = 2;
    for (const bool isInterrupted : {false, true}) {
        SCOPED_TRACE(isInterrupted);
        startWith(limits);
        for (const auto* const name : {"a", "b", "c", "file"}) {
            m_client->store(std::string("folder/") + name, "x");
        }
        auto& gate = m_client->gate("deleteObjects");
        auto removing = std::async(std::launch::async, [&] {
            const ScopedMainContext main;
            return errorCodeOf([&] { m_provider->removeFolderRecursively(IRI(u"/folder")); });
        });
        EXPECT_TRUE(gate.waitForArrivals(1));
        Stream opened;
        if (isInterrupted) {
            foundation::utInterruptState::RequestInterrupt();
        } else {
            opened = m_provider->openStream(IRI(u"/folder"), replace());
        }
        gate.open();
        EXPECT_EQ(removing.get(), isInterrupted ? ErrorCode::Unknown : ErrorCode::InUse);
        EXPECT_FALSE(m_client->content("folder/b"));
        EXPECT_TRUE(m_client->content("folder/c"));
    }
}

TEST_F(LimitsTest, FoldersAreRemovedByAsManyKeysAsTheStoreTakes) {
    StoreLimits limits;
    limits.DeletedAtOnce = 3;
    startWith(limits);
    for (const auto* const name : {"a", "b", "c", "d", "e", "f", "g"}) {
        m_client->store(std::string("folder/") + name, "x");
    }
    m_client->failOperation("deleteObjects", 2);
    const IRI folder(u"/folder");
    EXPECT_EQ(errorCodeOf([&] { m_provider->removeFolderRecursively(folder); }), ErrorCode::Unknown);
    EXPECT_FALSE(m_client->content("folder/c"));
    EXPECT_TRUE(m_client->content("folder/d")) << "what was removed before stays removed, the rest stays";
    m_provider->removeFolderRecursively(folder);
    EXPECT_EQ(m_client->count("deleteObjects"), 3U);
    EXPECT_EQ(m_client->count("deleteObject"), 1U) << "the last one alone";
    EXPECT_FALSE(m_provider->folderExists(folder));
}

}  // namespace storage::cloudprovider::test
