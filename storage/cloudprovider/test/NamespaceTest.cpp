// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"
#include "OpenFileManager.hpp"
#include "ScopedMainContext.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>

#include <boost/numeric/conversion/cast.hpp>

#include <functional>
#include <thread>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ByteStreamCloseFailure;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::ReplacementPolicy;
using When = CallControl::When;

class NamespaceTest : public EngineTest {
protected:
    bool isAnythingOpen() const {
        auto& files = OpenFileManager::instance();
        return files.isOpen(m_file, m_client) || files.isOpen(m_other, m_client);
    }

    void expectError(ErrorCode code, const IRI& iri, const std::function<void()>& action) {
        try {
            action();
            ADD_FAILURE() << "it succeeded";
        } catch (const Exception& failure) {
            EXPECT_EQ(failure.getErrorCode(), code) << failure.what();
            EXPECT_EQ(failure.getIRI(), iri) << failure.what();
        }
    }

    void move(ReplacementPolicy policy = ReplacementPolicy::Replace) const {
        m_provider->moveFile(m_file, m_other, policy);
    }

    const std::string m_otherKey = "other";
    const IRI m_other{u"/other"};
    const std::string m_content = "more than three parts of eight";
};

TEST_F(NamespaceTest, WhatTheStoreCannotDoIsUnsupportedAtOnce) {
    expectError(ErrorCode::Unsupported, m_file, [&] { m_provider->setWritable(m_file, false); });
    expectError(ErrorCode::Unsupported, m_file, [&] { m_provider->setLastModified(m_file, {}); });
    expectError(ErrorCode::Unsupported, m_file,
                [&] { m_provider->moveFolder(m_file, m_other, ReplacementPolicy::Replace); });
    expectError(ErrorCode::Unsupported, m_file, [&] { move(static_cast<ReplacementPolicy>(2)); });
    EXPECT_EQ(m_client->callCount(), 0U);
}

TEST_F(NamespaceTest, TheRootIsAFolderThatIsThere) {
    const IRI root(u"/");
    expectError(ErrorCode::NotFound, root, [&] { m_provider->removeFile(root); });
    expectError(ErrorCode::AlreadyExists, root, [&] { m_provider->createFile(root); });
    expectError(ErrorCode::AlreadyExists, root, [&] { m_provider->createFolder(root); });
    EXPECT_EQ(m_client->callCount(), 0U);
}

TEST_F(NamespaceTest, RecursiveCreationSeesWhatItMadeByAnotherName) {
    m_provider->createFolderRecursive(IRI(u"/x/./y"));
    EXPECT_EQ(m_client->keys(), (std::vector<std::string>{"x/", "x/y/"}));
}

TEST_F(NamespaceTest, TwoMayCreateOnePathAtOnce) {
    // Both have seen that nothing is there when the one makes it all.
    const IRI path(u"/x/y");
    auto& gate = m_client->gate("getObjectInfo", "x");
    std::thread second([&] { EXPECT_NO_THROW(m_provider->createFolderRecursive(path)); });
    ASSERT_TRUE(gate.waitForArrivals());
    m_client->store("x/", "");
    m_client->store("x/y/", "");
    gate.open();
    second.join();
    EXPECT_EQ(m_client->keys(), (std::vector<std::string>{"x/", "x/y/"}));
    EXPECT_EQ(m_client->count("putObject"), 0U);
}

TEST_F(NamespaceTest, OpenFilesAreNeitherRemovedNorMovedNorReplaced) {
    m_client->store(m_key, m_content);
    m_client->store(m_otherKey, "kept");
    auto stream = openForReading();
    std::thread([&] {
        expectError(ErrorCode::InUse, m_file, [&] { m_provider->removeFile(m_file); });
        expectError(ErrorCode::InUse, m_file, [&] { move(); });
        expectError(ErrorCode::InUse, m_file,
                    [&] { m_provider->moveFile(m_other, m_file, ReplacementPolicy::Replace); });
        expectError(ErrorCode::InUse, m_file,
                    [&] { m_provider->copyFile(m_other, m_file, ReplacementPolicy::Replace); });
    }).join();
    EXPECT_EQ(m_client->count("deleteObject"), 0U);
    m_provider->copyFile(m_file, m_other, ReplacementPolicy::Replace);  // an open source may be copied
    EXPECT_EQ(m_client->content(m_otherKey), m_content);
    stream.reset();
    move();
    EXPECT_EQ(m_client->keys(), std::vector<std::string>{m_otherKey});
}

TEST_F(NamespaceTest, FilesOpenBelowAFolderDoNotKeepItFromRecursiveRemoval) {
    m_client->store(m_key, m_content);
    const auto stream = openForReading();
    m_provider->removeFolderRecursively(IRI(u"/folder"));
    EXPECT_TRUE(m_client->keys().empty());
}

TEST_F(NamespaceTest, KeysOutsideTheFolderAreNeverDeleted) {
    class Liar : public FakeCloudClient {
        std::vector<ObjectInfo> listObjects(const std::string&, std::string& token, const ListOptions&) override {
            token.clear();
            return {{"folder/file", 0, {}}, {"other", 0, {}}};
        }
    };
    const auto liar = std::make_shared<Liar>();
    const auto provider = buildCloudProvider(liar, FolderPolicy::MarkerObjects, false);
    expectError(ErrorCode::Unknown, IRI(u"/folder"), [&] { provider->removeFolderRecursively(IRI(u"/folder")); });
    EXPECT_EQ(liar->count("deleteObject"), 0U);
}

TEST_F(NamespaceTest, AnInterruptedTransferLeavesBothFilesAsTheyWere) {
    FakeCloudClient::Options options;
    options.onDownload = [](std::string&) { foundation::utInterruptState::RequestInterrupt(); };
    m_client = std::make_shared<FakeCloudClient>(options);
    m_provider = buildCloudProvider(m_client, FolderPolicy::MarkerObjects, false);
    for (const bool isMove : {true, false}) {
        SCOPED_TRACE(isMove ? "move" : "copy");
        const ScopedMainContext context;
        m_client->storeParts(m_key, m_content, {8, 8, 8, 6});
        m_client->store(m_otherKey, "kept");
        m_client->clearCalls();
        expectError(ErrorCode::Unknown, m_file,
                    [&] { isMove ? move() : m_provider->copyFile(m_file, m_other, ReplacementPolicy::Replace); });
        EXPECT_GT(m_client->count("uploadPart"), 0U) << "it ended before bytes were on their way";
        EXPECT_FALSE(isAnythingOpen());
        EXPECT_EQ(m_client->content(m_key), m_content);
        EXPECT_EQ(m_client->content(m_otherKey), "kept");
    }
}

TEST_F(NamespaceTest, FaultsNeverLoseBothEndsOfATransfer) {
    allowViolations();
    const std::string oldContent = "old content of the destination, of several parts";
    for (const bool isMove : {true, false}) {
        for (const When when : {When::Before, When::After}) {
            for (std::size_t nth = 1;; ++nth) {
                SCOPED_TRACE(std::string(isMove ? "move" : "copy") + (when == When::Before ? ", before" : ", after") +
                             " call " + std::to_string(nth));
                m_client = std::make_shared<FakeCloudClient>();
                m_provider = buildCloudProvider(m_client, FolderPolicy::MarkerObjects, false);
                m_client->storeParts(m_key, m_content, {8, 8, 8, 6});
                m_client->store(m_otherKey, oldContent);
                m_client->failCall(nth, when);
                bool isOk = true;
                try {
                    isMove ? move() : m_provider->copyFile(m_file, m_other, ReplacementPolicy::Replace);
                } catch (const std::exception&) {
                    isOk = false;
                }
                const auto source = m_client->content(m_key);
                const auto destination = m_client->content(m_otherKey);
                const auto failed = m_client->faultCount() == 0 ? Call{} : m_client->calls()[nth - 1];
                if (isOk) {
                    EXPECT_EQ(destination, m_content);
                    EXPECT_EQ(source.has_value(), !isMove);
                } else if (source != m_content) {
                    // Removed before the destination was stored: only storing it may have failed.
                    EXPECT_TRUE(isMove);
                    EXPECT_TRUE(destination == m_content || failed.operation == "completeMultipartUpload" ||
                                failed.operation == "uploadPart" || failed.operation == "startMultipartUpload")
                        << failed.operation;
                } else if (!isMove) {
                    EXPECT_TRUE(destination == oldContent || destination == m_content) << *destination;
                }
                EXPECT_FALSE(isAnythingOpen());
                if (failed.operation != "startMultipartUpload" || when != When::After) {
                    EXPECT_EQ(m_client->openUploads(), 0U);
                }
                ASSERT_FALSE(HasFailure());
                if (m_client->faultCount() == 0) {
                    break;
                }
            }
        }
    }
    m_client = std::make_shared<FakeCloudClient>();
}

TEST_F(NamespaceTest, AMoveWhoseDestinationIsNotStoredHasLostTheSource) {
    m_client->store(m_key, m_content);
    m_client->store(m_otherKey, "kept");
    m_client->failOperation("completeMultipartUpload");
    EXPECT_THROW(move(), ByteStreamCloseFailure);
    EXPECT_FALSE(m_client->content(m_key));
    EXPECT_EQ(m_client->content(m_otherKey), "kept");
}

// A reader that opens the destination shares it, and would be the one to store it.
TEST_F(NamespaceTest, ATransferIsStoredWhenItReturnsWhoeverHasTheDestinationOpen) {
    for (const bool isMove : {true, false}) {
        startAnew();
        m_client->storeParts(m_key, m_content, {8, 8, 8, 6});
        auto& gate = m_client->gate("getObject");
        std::thread transfer([&] {
            isMove ? move() : m_provider->copyFile(m_file, m_other, ReplacementPolicy::Replace);
            EXPECT_EQ(m_client->content(m_otherKey), m_content);
        });
        ASSERT_TRUE(gate.waitForArrivals());
        const auto reader = m_provider->openReadOnlyStream(m_other);
        gate.open();
        transfer.join();
        EXPECT_EQ(readAll(reader), m_content);
    }
}

TEST_F(NamespaceTest, ACopyThatFailsInWhateverWayLeavesTheDestination) {
    const std::function<void()> faults[] = {[] { throw boost::numeric::positive_overflow(); },
                                            [] { throw Exception(ErrorCode::InUse, IRI()); }, [] { throw 1; }};
    m_client->storeParts(m_key, m_content, {8, 8, 8, 6});
    m_client->store(m_otherKey, "kept");
    for (const auto& fault : faults) {
        m_client->setFault(fault);
        m_client->failOperation("getObject", 2);
        EXPECT_ANY_THROW(m_provider->copyFile(m_file, m_other, ReplacementPolicy::Replace));
        EXPECT_EQ(m_client->content(m_otherKey), "kept");
        EXPECT_FALSE(isAnythingOpen());
    }
}

TEST_F(NamespaceTest, FaultsInRecursiveRemovalLeaveTheRestWhole) {
    for (std::size_t nth = 1; nth <= 4; ++nth) {
        SCOPED_TRACE(nth);
        m_client->store("d/", "");
        m_client->store("d/e/f", "x");
        m_client->store("d/g", "y");
        m_client->failCall(nth);
        EXPECT_EQ(errorCodeOf([&] { m_provider->removeFolderRecursively(IRI(u"/d")); }), ErrorCode::Unknown);
        EXPECT_EQ(m_client->keys().size(), nth == 1 ? 3U : 5U - nth);
        m_provider->removeFolderRecursively(IRI(u"/d"));
        EXPECT_TRUE(m_client->keys().empty());
    }
}

}  // namespace storage::cloudprovider::test
