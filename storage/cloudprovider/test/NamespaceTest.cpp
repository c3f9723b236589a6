// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"
#include "ScopedMainContext.hpp"
#include "TraceGate.hpp"

#include <foundation/services/InterruptState.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/testing/VersionedFakeClient.hpp>

#include <boost/numeric/conversion/cast.hpp>

#include <functional>
#include <optional>
#include <set>
#include <thread>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ByteStreamCloseFailure;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::ReplacementPolicy;
using When = CallControl::When;

class NamespaceTest : public EngineTest {
protected:
    bool isAnythingOpen() const { return isOpen(m_file) || isOpen(m_other); }

    void expectError(ErrorCode code, const IRI& iri, const std::function<void()>& action) {
        try {
            action();
            ADD_FAILURE() << "it succeeded";
        } catch (const Exception& failure) {
            EXPECT_EQ(failure.getErrorCode(), code) << failure.what();
            EXPECT_EQ(failure.getIRI(), iri) << failure.what();
        }
    }

    // Whether it succeeded.
    bool transfer(bool isMove) const {
        try {
            isMove ? move() : m_provider->copyFile(m_file, m_other, ReplacementPolicy::Replace);
            return true;
        } catch (const std::exception&) {
            return false;
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
    for (const auto& mode : transferModes()) {
        SCOPED_TRACE(mode.name);
        startAnew(mode);
        m_client->store(m_key, m_content);
        m_client->store(m_otherKey, "kept");
        auto stream = openFile(update());
        write(stream, "More");
        std::thread([&] {
            expectError(ErrorCode::InUse, m_file, [&] { m_provider->removeFile(m_file); });
            expectError(ErrorCode::InUse, m_file, [&] { move(); });
            expectError(ErrorCode::InUse, m_file,
                        [&] { m_provider->moveFile(m_other, m_file, ReplacementPolicy::Replace); });
            expectError(ErrorCode::InUse, m_file,
                        [&] { m_provider->moveFile(IRI(u"/missing"), m_file, ReplacementPolicy::Replace); });
            expectError(ErrorCode::InUse, m_file,
                        [&] { m_provider->copyFile(m_other, m_file, ReplacementPolicy::Replace); });
        }).join();
        EXPECT_EQ(m_client->keys().size(), 2U);
        EXPECT_EQ(m_client->content(m_otherKey), "kept");
        m_provider->copyFile(m_file, m_other, ReplacementPolicy::Replace);  // an open source may be copied, as it is
        EXPECT_EQ(m_client->content(m_otherKey), "More" + m_content.substr(4));
        stream.reset();
        move();
        EXPECT_EQ(m_client->keys(), std::vector<std::string>{m_otherKey});
        EXPECT_EQ(m_client->count("copyObject"), mode.options.copyInStore ? 1U : 0U);
    }
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
    m_providersClient = m_client;
    for (const unsigned row : {0U, 1U, 2U, 3U}) {
        const bool isMove = row % 2 != 0;
        SCOPED_TRACE(row);
        m_provider =
            buildCloudProvider(m_client, FolderPolicy::MarkerObjects, false, transferModes().at(row / 2).options);
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
    for (const auto& mode : transferModes()) {
        for (const unsigned row : {0U, 1U, 2U, 3U}) {
            const bool isMove = row / 2 == 0;
            const When when = row % 2 == 0 ? When::Before : When::After;
            for (std::size_t nth = 1;; ++nth) {
                SCOPED_TRACE(std::string(mode.name) + (isMove ? ", move" : ", copy") +
                             (when == When::Before ? ", before" : ", after") + " call " + std::to_string(nth));
                startAnew(mode);
                m_client->storeParts(m_key, m_content, {8, 8, 8, 6});
                m_client->store(m_otherKey, oldContent);
                m_client->failCall(nth, when);
                const bool isOk = transfer(isMove);
                const auto source = m_client->content(m_key);
                const auto destination = m_client->content(m_otherKey);
                const auto failed = m_client->faultCount() == 0 ? Call{} : m_client->calls()[nth - 1];
                if (isOk) {
                    EXPECT_EQ(destination, m_content);
                    EXPECT_EQ(source.has_value(), !isMove);
                } else if (source != m_content) {
                    // Removed before the destination was stored: only storing it may have failed.
                    EXPECT_TRUE(isMove);
                    EXPECT_TRUE(destination == m_content ||
                                (!mode.storesFirst() &&
                                 (failed.operation == "completeMultipartUpload" || failed.operation == "uploadPart" ||
                                  failed.operation == "startMultipartUpload")))
                        << failed.operation;
                } else if (!isMove || mode.storesFirst()) {
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
    startAnew();  // uploads that could not even be aborted went with the others
}

// At each kind of call of a move, somebody else stores the source, in this process or in another one.
TEST_F(NamespaceTest, WhatSomebodyElseStoresIsNotRemovedByAMove) {
    const std::string theirs(m_content.size(), 't');
    for (const unsigned row : {0U, 1U, 2U, 3U}) {
        const auto mode = transferModes().at(2 + row / 2);
        const bool isHere = row % 2 != 0;
        std::set<std::pair<std::string, std::string>> seen;  // operations with their keys
        for (auto held = seen.emplace().first; held != seen.end(); ++held) {
            const auto& [operation, key] = *held;
            SCOPED_TRACE(std::string(mode.name) + (isHere ? ", here, " : ", elsewhere, ") + operation + ' ' + key);
            startAnew(mode);
            m_client->storeParts(m_key, m_content, {8, 8, 8, 6});
            auto& gate = m_client->gate(operation, key);
            bool isOk = false;
            std::thread mover([&] { isOk = transfer(true); });
            const bool isHeld = !operation.empty();
            // Who opens the source here while it is asked for waits for the answer, too.
            const bool sharesStream = isHere && (key != m_key || operation == "copyObject");
            if (isHeld) {
                ASSERT_TRUE(gate.waitForArrivals());
                if (sharesStream) {
                    const auto stream = openFile(update());
                    write(stream, theirs);
                    stream->close();
                } else {
                    m_client->store(m_key, theirs);
                }
            }
            gate.open();
            mover.join();
            const auto source = m_client->content(m_key);
            const auto destination = m_client->content(m_otherKey);
            EXPECT_EQ(source, isOk ? std::nullopt : std::optional(theirs));
            EXPECT_TRUE(!isOk || destination == (isHeld ? theirs : m_content));
            // What is edited here while it is copied is copied as it is at the time.
            EXPECT_TRUE(!destination || destination == theirs || destination == m_content || sharesStream);
            EXPECT_FALSE(isAnythingOpen());
            ASSERT_FALSE(HasFailure());
            for (const auto& call : isHeld ? std::vector<Call>() : m_client->calls()) {
                seen.emplace(call.operation, call.key);
            }
        }
        EXPECT_EQ(seen.count({"copyObject", m_key}), mode.options.copyInStore ? 1U : 0U);
        EXPECT_EQ(seen.count({"removeObject", m_key}), 1U);
    }
}

TEST_F(NamespaceTest, AMoveWhoseSourceIsInUseWhenItIsCopiedSaysThatBothStand) {
    struct Row {
        std::size_t mode;
        const char* operation;
        bool isOpened;  // by somebody here, who writes to it; else replaced by somebody elsewhere
    };
    for (const auto& row : {Row{2, "completeUploadOver", true},
                            {3, "copyObject", true},
                            {2, "removeObject", false},
                            {3, "removeObject", false}}) {
        SCOPED_TRACE(std::to_string(row.mode) + row.operation);
        startAnew(transferModes().at(row.mode));
        m_client->store(m_key, m_content);
        auto& gate = m_client->gate(row.operation);
        std::thread mover([&] {
            try {
                move();
                ADD_FAILURE() << "it succeeded";
            } catch (const Exception& failure) {
                EXPECT_EQ(failure.getErrorCode(), ErrorCode::InUse);
                EXPECT_EQ(failure.getIRI(), m_file);
                EXPECT_PRED_FORMAT2(testing::IsSubstring, "the destination is stored", failure.what());
            }
        });
        ASSERT_TRUE(gate.waitForArrivals());
        auto stream = row.isOpened ? openFile(update()) : nullptr;
        if (stream) {
            write(stream, "More");
        } else {
            m_client->store(m_key, "theirs");
        }
        gate.open();
        mover.join();
        stream.reset();
        EXPECT_EQ(m_client->content(m_key), row.isOpened ? "More" + m_content.substr(4) : "theirs");
        EXPECT_EQ(m_client->content(m_otherKey), m_content);
    }
}

TEST_F(NamespaceTest, AnOpenerOfTheDestinationWaitsForACopyInsideTheStore) {
    for (const bool isMove : {true, false}) {
        startAnew(transferModes().back());
        m_client->storeParts(m_key, m_content, {8, 8, 8, 6});
        m_client->store(m_otherKey, "old");
        auto& gate = m_client->gate("copyObject");
        std::thread copier([&] { EXPECT_TRUE(transfer(isMove)); });
        ASSERT_TRUE(gate.waitForArrivals());
        m_client->clearCalls();
        expectError(ErrorCode::InUse, m_other, [&] { m_provider->removeFile(m_other); });
        TraceGate opening("OpenFileManager::acquirePartManager(");
        std::thread opener([&] { EXPECT_EQ(readAll(m_provider->openReadOnlyStream(m_other)), m_content); });
        ASSERT_TRUE(opening.waitForArrival());
        opening.open();
        EXPECT_EQ(m_client->count("describeObject"), 0U);
        gate.open();
        copier.join();
        opener.join();
        EXPECT_FALSE(isAnythingOpen());
    }
}

// The errors of a copy inside the store are those of one through streams, and so is what becomes of the files.
TEST_F(NamespaceTest, CopiesInsideTheStoreFailLikeOthers) {
    const std::function<void(FakeCloudClient&)> missing = [](FakeCloudClient&) {};
    const std::function<void(FakeCloudClient&)> replaced = [this](FakeCloudClient& store) {
        store.store(m_key, "theirs");
    };
    const std::function<void(FakeCloudClient&)> removed = [this](FakeCloudClient& store) { store.deleteObject(m_key); };
    const std::function<void(FakeCloudClient&)> created = [this](FakeCloudClient& store) {
        store.store(m_otherKey, "theirs");
    };
    struct Row {
        const char* name;
        bool isThere;
        ReplacementPolicy policy;
        std::function<void(FakeCloudClient&)> meanwhile;
        ErrorCode code;
        IRI iri;
    };
    const Row rows[] = {
        {"missing", false, ReplacementPolicy::Replace, missing, ErrorCode::NotFound, m_file},
        {"replaced", true, ReplacementPolicy::Replace, replaced, ErrorCode::InUse, m_file},
        {"removed", true, ReplacementPolicy::Replace, removed, ErrorCode::InUse, m_file},
        {"created", true, ReplacementPolicy::Fail, created, ErrorCode::InUse, m_other},
    };
    for (const bool inStore : {true, false}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(row.name) + (inStore ? ", inside" : ", through streams"));
            startAnew(transferModes().at(inStore ? 3 : 2));
            if (row.isThere) {
                m_client->storeParts(m_key, m_content, {8, 8, 8, 6});
            }
            auto& gate = m_client->gate(inStore ? "copyObject" : "getRange");
            std::thread copier(
                [&] { expectError(row.code, row.iri, [&] { m_provider->copyFile(m_file, m_other, row.policy); }); });
            if (row.isThere) {
                ASSERT_TRUE(gate.waitForArrivals());
                row.meanwhile(*m_client);
            }
            const auto other = m_client->content(m_otherKey);
            gate.open();
            copier.join();
            EXPECT_EQ(m_client->content(m_otherKey), other);
            EXPECT_FALSE(isAnythingOpen());
        }
    }
}

TEST_F(NamespaceTest, BytesTravelWhereTheStoreDoesNotCopy) {
    startAnew(transferModes().back());
    FakeCloudClient::Options options;
    options.copiesInStore = false;
    m_client = std::make_shared<FakeCloudClient>(options);
    m_provider = buildCloudProvider(std::make_shared<VersionedFakeClient>(m_client), FolderPolicy::MarkerObjects, false,
                                    transferModes().back().options);
    m_client->storeParts(m_key, m_content, {8, 8, 8, 6});
    m_provider->copyFile(m_file, m_other, ReplacementPolicy::Fail);
    EXPECT_EQ(m_client->content(m_otherKey), m_content);
    move();
    EXPECT_EQ(m_client->count("copyObject"), 2U);
    EXPECT_EQ(m_client->keys(), std::vector<std::string>{m_otherKey});
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
    for (const unsigned row : {0U, 1U, 2U, 3U}) {
        startAnew(transferModes().at(row / 2));
        m_client->storeParts(m_key, m_content, {8, 8, 8, 6});
        auto& gate = m_client->gate("getObject");
        std::thread copier([&] {
            EXPECT_TRUE(transfer(row % 2 != 0));
            EXPECT_EQ(m_client->content(m_otherKey), m_content);
        });
        ASSERT_TRUE(gate.waitForArrivals());
        const auto reader = m_provider->openReadOnlyStream(m_other);
        gate.open();
        copier.join();
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
