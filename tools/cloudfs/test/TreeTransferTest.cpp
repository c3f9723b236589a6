// SPDX-License-Identifier: Apache-2.0
#include "store/TreeTransfer.hpp"

#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

#include <EngineTest.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/testing/VersionedFakeClient.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace cloudfs {

namespace {

using storage::cloudprovider::test::FakeCloudClient;
using storage::cloudprovider::test::ScopedTemporaryFolder;
using storage::cloudprovider::test::VersionedFakeClient;
using Contents = std::map<std::string, std::string>;

// Calls back when an object has been copied.
class ObservedClient final : public VersionedFakeClient {
public:
    using VersionedFakeClient::VersionedFakeClient;

    bool copyObject(const std::string& from, const std::string& fromVersion, const std::string& to,
                    const storage::cloudprovider::ExpectedObject& expected) override {
        const bool isCopied = VersionedFakeClient::copyObject(from, fromVersion, to, expected);
        onCopied(from);
        return isCopied;
    }

    std::function<void(const std::string& key)> onCopied = [](const std::string& /*key*/) {};
};

// A folder /old to move to /new, where one of its files is already.
class TreeTransferTest : public ::testing::Test {
protected:
    void startAnew(bool copiesInStore) {
        FakeCloudClient::Options options;
        options.pageSize = 2;
        options.copiesInStore = copiesInStore;
        m_store = std::make_shared<FakeCloudClient>(options);
        for (const auto& [name, bytes] : m_files) {
            m_store->store("old/" + name, bytes);
        }
        m_store->store("new/a", "former");
        m_client = std::make_shared<ObservedClient>(m_store);
        storage::cloudprovider::ProviderOptions providerOptions;
        providerOptions.copyInStore = true;
        m_provider = storage::cloudprovider::buildCloudProvider(
            m_client, storage::cloudprovider::FolderPolicy::MarkerObjects, true, providerOptions);
    }

    TreeTransfer transfer() { return {m_client, *m_provider, StorePath("/old"), StorePath("/new")}; }

    void move(const std::function<void()>& meanwhile = [] {}) {
        auto tree = transfer();
        tree.copy(true, m_progress);
        meanwhile();
        tree.removeSource(m_progress);
    }

    Contents contentsBelow(const std::string& prefix) {
        Contents below;
        for (const auto& [key, bytes] : storage::cloudprovider::test::contentsOf(*m_store)) {
            if (key.compare(0, prefix.size(), prefix) == 0) {
                below.emplace(key.substr(prefix.size()), bytes);
            }
        }
        return below;
    }

    ScopedTemporaryFolder m_folder;
    ProgressBar m_progress{std::nullopt, ProgressBar::Visibility::Never};
    const Contents m_files{{"", ""}, {"a", "content of a"}, {"empty/", ""}, {"sub/", ""}, {"sub/b.", "content of b"}};
    std::shared_ptr<FakeCloudClient> m_store;
    std::shared_ptr<ObservedClient> m_client;
    std::shared_ptr<IProvider> m_provider;
};

TEST_F(TreeTransferTest, WhateverFailsEachFileIsWholeAtOneOfItsPlaces) {
    using When = FakeCloudClient::When;
    for (const bool copiesInStore : {true, false}) {
        for (const When when : {When::Before, When::After}) {
            std::size_t faults = 1;
            for (std::size_t nth = 1; faults > 0; ++nth) {
                SCOPED_TRACE(nth);
                startAnew(copiesInStore);
                m_store->failCall(nth, when);
                bool isMoved = true;
                try {
                    move();
                } catch (const std::exception&) {
                    isMoved = false;
                }
                faults = m_store->faultCount();
                m_store->clearFaults();
                const auto from = contentsBelow("old/");
                const auto to = contentsBelow("new/");
                const bool isStored = to == m_files;
                ASSERT_TRUE(isStored || from == m_files) << "something was removed before all was stored";
                ASSERT_TRUE(isStored || !isMoved);
                ASSERT_TRUE(to.at("a") == "former" || to.at("a") == m_files.at("a"));
                for (const auto& [name, bytes] : to) {
                    ASSERT_TRUE(name == "a" || m_files.at(name) == bytes) << name;
                }
                ASSERT_TRUE(!isMoved || from.empty());
            }
        }
    }
}

TEST_F(TreeTransferTest, WhatWasChangedOrAddedMeanwhileStaysAndIsNamed) {
    for (const auto& [name, stays] :
         std::map<std::string, Contents>{{"a", {{"", ""}, {"a", "other"}}},
                                         {"sub/b.", {{"", ""}, {"sub/", ""}, {"sub/b.", "other"}}},
                                         {"sub/deep/new", {{"", ""}, {"sub/", ""}, {"sub/deep/new", "other"}}},
                                         {"later/", {{"", ""}, {"later/", "other"}}}}) {
        SCOPED_TRACE(name);
        startAnew(true);
        const auto key = name;
        try {
            move([&] { m_store->store("old/" + key, "other"); });
            ADD_FAILURE() << "nothing was said";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.what(),
                      "InUse: /old: all is at /new, but what was changed or added meanwhile stays: /old/" + name);
        }
        EXPECT_EQ(contentsBelow("old/"), stays);
        EXPECT_EQ(contentsBelow("new/"), m_files);
    }
}

TEST_F(TreeTransferTest, AFileThatIsReplacedAsSoonAsItIsCopiedStays) {
    startAnew(true);
    m_client->onCopied = [&](const std::string& key) { m_store->store(key, "other " + key); };
    EXPECT_THROW(move(), Failure);
    EXPECT_EQ(contentsBelow("old/").at("a"), "other old/a");
    EXPECT_EQ(contentsBelow("old/").at("sub/b."), "other old/sub/b.");
    EXPECT_EQ(contentsBelow("new/"), m_files);
}

TEST_F(TreeTransferTest, WhatIsThereIsRefusedBeforeAnythingIsCopied) {
    startAnew(true);
    EXPECT_THROW(transfer().failIfTaken(), Failure);
    m_store->store("old//x", "");
    EXPECT_THROW(transfer(), Failure);
    EXPECT_EQ(contentsBelow("new/"), (Contents{{"a", "former"}}));
}

}  // namespace

}  // namespace cloudfs
