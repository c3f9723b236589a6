// SPDX-License-Identifier: Apache-2.0
// Files on a real server behind an unreliable line: nothing is lost, nothing wrong is read, nothing is left behind.
// The environment names the server, see serverOptions.hpp; MODEL_SEED=N runs that seed alone.
#include "FaultProxy.hpp"
#include "serverOptions.hpp"

#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/s3/S3Client.hpp>
#include <storage/cloudprovider/testing/NamespaceModel.hpp>
#include <storage/cloudprovider/testing/StreamModel.hpp>
#include <storage/cloudprovider/testing/stored.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <thread>
#include <vector>

namespace storage::cloudprovider::test {

namespace {

using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::StorageIRI;
using s3::test::Fault;
using s3::test::FaultProxy;
using s3::test::FaultProxyOptions;

constexpr std::uint64_t kPartSize = 5 * 1024 * 1024;
const StorageIRI kFile(u"/file");

std::vector<std::uint64_t> seeds(std::uint64_t count) {
    if (const char* const chosen = std::getenv("MODEL_SEED")) {
        return {std::strtoull(chosen, nullptr, 10)};
    }
    std::vector<std::uint64_t> seeds;
    for (std::uint64_t seed = 1; seed <= count; ++seed) {
        seeds.push_back(seed);
    }
    return seeds;
}

std::shared_ptr<foundation::storage::provider::IProvider> provide(const std::shared_ptr<S3Client>& client,
                                                                  FolderPolicy policy = FolderPolicy::MarkerObjects) {
    ProviderOptions options;
    options.transferThreads = 4;
    options.readAheadParts = 2;
    options.partSize = kPartSize;
    options.cacheSize = 2 * kPartSize;
    options.copyInStore = true;
    options.moveOrder = MoveOrder::StoreDestinationFirst;
    return buildCloudProvider(client, policy, false, options);
}

}  // namespace

class S3FaultTest : public testing::Test {
protected:
    void TearDown() override {
        std::string token;
        std::vector<std::string> left;
        do {
            for (const auto& upload : m_store->listUploads("", token)) {
                left.push_back(upload.Key);
            }
        } while (!token.empty());
        EXPECT_EQ(left, std::vector<std::string>());
    }

    static std::uint16_t serverPort() {
        const auto endpoint = setting("S3_ENDPOINT");
        return static_cast<std::uint16_t>(std::stoul(endpoint.substr(endpoint.rfind(':') + 1)));
    }

    // Something befalls about one request in five.
    static FaultProxyOptions unreliable(std::uint64_t seed) {
        FaultProxyOptions options;
        options.serverPort = serverPort();
        options.seed = seed;
        for (const auto fault : {Fault::SlowDown, Fault::Reset, Fault::Truncated, Fault::Oversized, Fault::ErrorInside,
                                 Fault::LostAnswer}) {
            options.chances[fault] = 0.05;
        }
        options.chances[Fault::Stall] = 0.01;
        options.stall = std::chrono::seconds(3);  // longer than the client bears
        return options;
    }

    std::shared_ptr<S3Client> clientBehind(const FaultProxy& proxy) const {
        auto options = m_options;
        options.Endpoint = proxy.endpoint();
        options.StallTimeout = std::chrono::seconds(1);
        options.LongestWait = std::chrono::milliseconds(200);
        return std::make_shared<S3Client>(options);
    }

    // How much the line had to do with it.
    static void tellFaults(const FaultProxy& proxy) {
        for (const auto& [fault, count] : proxy.counts().faults) {
            std::cout << s3::test::kFaultNames.at(static_cast<std::size_t>(fault)) << ' ' << count << ' ';
        }
        std::cout << "faults in " << proxy.counts().requests << " requests\n";
    }

    // As somebody would who must have a line in a file that many write to.
    static void append(const std::shared_ptr<S3Client>& client, const std::string& line, unsigned seed) {
        const auto provider = provide(client);
        std::mt19937 random(seed);
        ByteStreamOpenOptions options;
        options.existingContent = ByteStreamOpenOptions::ExistingContent::Preserve;
        options.writeMode = ByteStreamOpenOptions::WriteMode::Append;
        for (int tries = 0; tries < 60; ++tries) {
            const auto failure = errorCodeOf([&] {
                const auto stream = provider->openStream(kFile, options);
                stream->write(line.data(), static_cast<std::int64_t>(line.size()));
                stream->close();
            });
            if (!failure) {
                return;
            }
            ASSERT_EQ(failure, ErrorCode::InUse) << line;
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % (20U << std::min(tries, 6))));
        }
        ADD_FAILURE() << "in use for ever: " << line;
    }

    // Of Swift's objects listings tell later, the more so when it is disturbed, and what is there is looked up before
    // it is replaced.
    static bool isConsistent() { return setting("S3_SERVER") != "swift"; }

    void appendLines(const std::function<std::shared_ptr<S3Client>()>& makeClient) {
        if (setting("S3_SERVER") != "ceph") {
            GTEST_SKIP() << "this server knows no condition of a put";
        }
        constexpr unsigned kWriters = 20;
        storeObject(*m_store, "file", "");
        std::vector<std::thread> writers;
        writers.reserve(kWriters);
        std::vector<std::string> expected;
        for (unsigned writer = 0; writer < kWriters; ++writer) {
            expected.push_back("line " + std::to_string(100 + writer) + '\n');
            writers.emplace_back([&makeClient, line = expected.back(), writer] {
                try {
                    append(makeClient(), line, writer);
                } catch (const std::exception& failure) {
                    ADD_FAILURE() << failure.what();
                }
            });
        }
        for (auto& writer : writers) {
            writer.join();
        }
        const auto content = contentOf(*m_store, "file").value_or("");
        std::vector<std::string> lines;
        for (std::size_t at = 0; at < content.size(); at += expected.front().size()) {
            lines.push_back(content.substr(at, expected.front().size()));
        }
        std::sort(lines.begin(), lines.end());
        EXPECT_EQ(lines, expected);
    }

    const S3Options m_options = serverOptions("faults");
    const std::shared_ptr<S3Client> m_store = std::make_shared<S3Client>(m_options);
};

TEST_F(S3FaultTest, StreamsOfOneFileBehaveLikeAPlainText) {
    if (!isConsistent()) {
        GTEST_SKIP() << "this server's conditions leave a window";
    }
    for (const auto seed : seeds(4)) {
        SCOPED_TRACE("MODEL_SEED=" + std::to_string(seed));
        const FaultProxy proxy(unreliable(seed));
        const auto provider = provide(clientBehind(proxy));
        const std::string key = "file" + std::to_string(seed);
        const StreamModel::Shape shape{
            .partSize = kPartSize, .transfer = 1, .object = 2, .file = 4, .storesOddParts = false};
        StreamModel model(seed, shape, StorageIRI::fromUtf8("/" + key), key, *provider, *m_store);
        try {
            for (int step = 0; step < 60 && !HasFailure(); ++step) {
                model.step();
            }
            model.finish();
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
        tellFaults(proxy);
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(S3FaultTest, FilesAndFoldersBehaveLikeAPlainMap) {
    if (!isConsistent()) {
        GTEST_SKIP() << "this server's listings follow its objects later";
    }
    for (const auto seed : seeds(2)) {
        SCOPED_TRACE("MODEL_SEED=" + std::to_string(seed));
        for (const auto& [key, bytes] : contentsOf(*m_store)) {
            m_store->deleteObject(key);
        }
        const FaultProxy proxy(unreliable(seed));
        const NamespaceModel::Traits traits{
            .policy = static_cast<FolderPolicy>(seed % 2), .missesRemoved = false, .mostBytes = 1000};
        const auto provider = provide(clientBehind(proxy), traits.policy);
        NamespaceModel model(seed, traits, *provider, *m_store);
        try {
            for (int step = 0; step < 60 && !HasFailure(); ++step) {
                SCOPED_TRACE("step " + std::to_string(step));
                model.step();
                model.compare();
            }
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
        tellFaults(proxy);
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(S3FaultTest, TheSecondOfTwoEditorsIsRefused) {
    for (const auto size : {std::size_t{10}, std::size_t{3 * kPartSize}}) {
        SCOPED_TRACE(size);
        storeObject(*m_store, "file", std::string(size, '-'));
        const auto edit = [this](char sign) {
            ByteStreamOpenOptions options;
            options.existingContent = ByteStreamOpenOptions::ExistingContent::Preserve;
            options.writeMode = ByteStreamOpenOptions::WriteMode::Positioned;
            auto stream = provide(std::make_shared<S3Client>(m_options))->openStream(kFile, options);
            stream->write(&sign, 1);
            return stream;
        };
        const auto first = edit('1');
        const auto second = edit('2');
        EXPECT_EQ(errorCodeOf([&] { first->close(); }), std::nullopt);
        EXPECT_EQ(errorCodeOf([&] { second->close(); }), ErrorCode::InUse);
        EXPECT_EQ(contentOf(*m_store, "file"), '1' + std::string(size - 1, '-'));
    }
}

TEST_F(S3FaultTest, ManyAppendersLoseAndRepeatNoLine) {
    appendLines([this] { return std::make_shared<S3Client>(m_options); });
}

TEST_F(S3FaultTest, ManyAppendersBehindAnUnreliableLineLoseAndRepeatNoLine) {
    const FaultProxy proxy(unreliable(1));
    appendLines([&] { return clientBehind(proxy); });
}

}  // namespace storage::cloudprovider::test
