// SPDX-License-Identifier: Apache-2.0
#include "ScopedMainContext.hpp"

#include <foundation/services/Text.hpp>
#include <foundation/storage/provider/Exception.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/testing/FakeCloudClient.hpp>

#include <gtest/gtest.h>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace storage::cloudprovider::test {

namespace {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::IFolderEntryIterator;
using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;
using Names = std::vector<std::string>;
using Options = FakeCloudClient::Options;

// A provider over a store that holds the keys; every test runs it with pages of several sizes.
struct Listed {
    explicit Listed(const Names& keys, const Options& options = {})
        : client(std::make_shared<FakeCloudClient>(options)) {
        for (const auto& key : keys) {
            client->store(key, std::string(key.empty() || key.back() == '/' ? 0 : key.size(), 'x'));
        }
        provider = buildCloudProvider(client, FolderPolicy::MarkerObjects, false);
    }
    ~Listed() { EXPECT_EQ(client->violations(), Names()); }
    Listed(const Listed&) = delete;
    Listed& operator=(const Listed&) = delete;

    boost::posix_time::ptime timeOf(const std::string& key) const { return client->getObjectInfo(key)->LastModified; }

    std::shared_ptr<FakeCloudClient> client;
    std::shared_ptr<IProvider> provider;
};

const Options kPagings[] = {
    {1000, false, 97, {}}, {1, false, 97, {}}, {2, false, 97, {}}, {1, true, 97, {}}, {3, true, 97, {}}};

// The names that are left, those of folders with a trailing "/".
Names rest(IFolderEntryIterator& entries) {
    Names names;
    while (entries.hasNext()) {
        entries.next();
        const auto entry = entries.get();
        names.push_back(foundation::toUtf8(entry.getName()) + (entry.isFolder() ? "/" : ""));
    }
    return names;
}

Names rest(const std::unique_ptr<IFolderEntryIterator>& entries) {
    return rest(*entries);
}

StorageIRI iri(const char16_t* path) {
    return StorageIRI(path);
}

void expectNotFound(const IProvider& provider, const StorageIRI& folder) {
    for (const auto list :
         {&IProvider::listAll, &IProvider::listFiles, &IProvider::listFolders, &IProvider::listAllRecursive}) {
        try {
            (provider.*list)(folder);
            ADD_FAILURE() << folder;
        } catch (const Exception& failure) {
            EXPECT_EQ(failure.getErrorCode(), ErrorCode::NotFound) << folder;
        }
    }
}

TEST(ListingTest, EachListingShowsItsKindOfEntries) {
    for (const auto& paging : kPagings) {
        SCOPED_TRACE(std::to_string(paging.pageSize) + (paging.emptyPages ? " with empty pages" : ""));
        const Listed store({"d/", "d/a", "d/b/", "d/b/x", "d/c/d/e", "d/z", "d.x", "d0", "other/x"}, paging);
        EXPECT_EQ(rest(store.provider->listAll(iri(u"/d"))), (Names{"a", "b/", "c/", "z"}));
        EXPECT_EQ(rest(store.provider->listFiles(iri(u"/d/"))), (Names{"a", "z"}));
        EXPECT_EQ(rest(store.provider->listFolders(iri(u"/d"))), (Names{"b/", "c/"}));
        EXPECT_EQ(rest(store.provider->listAllRecursive(iri(u"/d"))),
                  (Names{"a", "b/", "b/x", "c/", "c/d/", "c/d/e", "z"}));
        EXPECT_EQ(rest(store.provider->listAll(iri(u"/"))), (Names{"d.x", "d/", "d0", "other/"}));
        EXPECT_EQ(rest(store.provider->listFilesNamesOnly(iri(u"/d"))), (Names{"a", "z"}));
        EXPECT_EQ(rest(store.provider->listAllRecursiveWildcards(iri(u"/"), u"?")).size(), 9U);
        for (const auto& call : store.client->calls()) {
            EXPECT_EQ(call.options.MaxKeys, -1);
        }
    }
}

TEST(ListingTest, AttributesComeFromTheObjects) {
    const Listed store({"d/b/", "d/b/x", "d/c/y", "d/file"});
    const auto entries = store.provider->listAll(iri(u"/d"));
    entries->next();
    EXPECT_EQ(entries->get().getFolderAttributes().getLastModified(), store.timeOf("d/b/"));
    EXPECT_TRUE(entries->get().getFolderAttributes().isWritable());
    entries->next();
    EXPECT_TRUE(entries->get().getFolderAttributes().getLastModified().is_not_a_date_time());
    entries->next();
    EXPECT_EQ(entries->get().getFileAttributes().getLastModified(), store.timeOf("d/file"));
    EXPECT_EQ(entries->get().getFileAttributes().getSize().value(), 6U);
    EXPECT_TRUE(entries->get().getFileAttributes().isWritable());
}

TEST(ListingTest, AFolderExistsByItsMarkerOrByWhatItHolds) {
    for (const auto& paging : kPagings) {
        const Listed store({"empty/", "file", "folder/x"}, paging);
        EXPECT_EQ(rest(store.provider->listAll(iri(u"/empty"))), Names());
        EXPECT_EQ(rest(store.provider->listAllRecursive(iri(u"/empty"))), Names());
        EXPECT_EQ(rest(store.provider->listFolders(iri(u"/folder"))), Names());
        expectNotFound(*store.provider, iri(u"/missing"));
        expectNotFound(*store.provider, iri(u"/file"));
        expectNotFound(*store.provider, iri(u"/fold"));
        expectNotFound(*Listed({}, paging).provider, iri(u"/"));
        EXPECT_EQ(rest(Listed({""}, paging).provider->listAll(iri(u"/"))), Names()) << "an object stands for the root";
    }
}

// A store may return marker and content in any order: the first to come shows the folder.
class UnorderedClient : public FakeCloudClient {
public:
    std::vector<ObjectInfo> listObjects(const std::string& prefix, std::string& token,
                                        const ListOptions& options) override {
        auto page = FakeCloudClient::listObjects(prefix, token, options);
        return {page.rbegin(), page.rend()};
    }
};

TEST(ListingTest, AFolderIsShownOnceRightBeforeWhatRevealsIt) {
    const auto before = boost::posix_time::second_clock::universal_time();
    const Listed ordered({"a/b/", "a/b/f.txt"});
    auto entries = ordered.provider->listAllRecursive(iri(u"/"));
    entries->next();
    EXPECT_EQ(entries->get().getName(), u"a");
    EXPECT_GE(entries->get().getFolderAttributes().getLastModified(), before);
    entries->next();
    EXPECT_EQ(entries->get().getName(), u"a/b");
    EXPECT_EQ(entries->get().getFolderAttributes().getLastModified(), ordered.timeOf("a/b/"));
    EXPECT_EQ(rest(entries), Names{"a/b/f.txt"});

    const auto client = std::make_shared<UnorderedClient>();
    client->store("a/b/", "");
    client->store("a/b/f.txt", "x");
    entries = buildCloudProvider(client, FolderPolicy::MarkerObjects, false)->listAllRecursive(iri(u"/"));
    EXPECT_EQ(rest(*entries->clone()), (Names{"a/", "a/b/", "a/b/f.txt"})) << "the marker is dropped";
    entries->next();
    entries->next();
    EXPECT_GE(entries->get().getFolderAttributes().getLastModified(), before) << "the implied entry's time";
}

TEST(ListingTest, AwkwardKeysAreShownAsWellAsTheyCanBe) {
    const Listed store({"/x", "d//", "d//e/", "d//x", "d/a//", "d/b//x/y", "d/\xFF/y", "d/\xFFz", "d/\xC3\xBC"});
    EXPECT_EQ(rest(store.provider->listAll(iri(u"/d"))),
              (Names{"a/", "b/", "\xC3\xBC", "\xEF\xBF\xBD/", "\xEF\xBF\xBDz"}));
    // What has a component without a name would open as another object.
    EXPECT_EQ(rest(store.provider->listAllRecursive(iri(u"/d"))),
              (Names{"a/", "b/", "\xC3\xBC", "\xEF\xBF\xBD/", "\xEF\xBF\xBD/y", "\xEF\xBF\xBDz"}));
    EXPECT_EQ(rest(store.provider->listFiles(iri(u"/"))), Names());
    EXPECT_EQ(rest(store.provider->listAllRecursiveWildcards(iri(u"/"), u"x")), Names());
}

TEST(ListingTest, AnIteratorIsExactAndItsCloneIndependent) {
    for (const auto& paging : kPagings) {
        const Listed store({"d/a", "d/b/x", "d/c", "d/e"}, paging);
        for (const auto list : {&IProvider::listAll, &IProvider::listAllRecursive}) {
            const auto whole = rest((*store.provider.*list)(iri(u"/d")));
            const auto entries = (*store.provider.*list)(iri(u"/d"));
            EXPECT_THROW(entries->get(), std::logic_error);
            EXPECT_EQ(rest(entries->clone()), whole);
            entries->next();
            const auto calls = store.client->callCount();
            const auto clone = entries->clone();
            EXPECT_EQ(store.client->callCount(), calls) << "cloning asked the store";
            EXPECT_EQ(clone->get().getName(), u"a");
            EXPECT_EQ(rest(clone), Names(whole.begin() + 1, whole.end()));
            EXPECT_EQ(rest(entries), Names(whole.begin() + 1, whole.end()));
            EXPECT_THROW(entries->next(), std::logic_error);
            EXPECT_EQ(entries->get().getName(), u"e") << "the last entry is lost";
        }
    }
}

TEST(ListingTest, AFailureOnALaterPageComesFromNextAndKeepsWhatWasMovedTo) {
    const Listed store({"d/a", "d/b", "d/c"}, {1, false, 97, {}});
    store.client->setFault([] { throw PermissionDeniedException(); });
    const auto entries = store.provider->listAll(iri(u"/d"));
    store.client->failCall(2);
    entries->next();
    try {
        entries->next();
        ADD_FAILURE();
    } catch (const Exception& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::PermissionDenied);
        EXPECT_EQ(failure.getIRI(), iri(u"/d"));
    }
    EXPECT_EQ(entries->get().getName(), u"b");
    EXPECT_FALSE(entries->hasNext());
    store.client->failCall(1);
    EXPECT_THROW(store.provider->listAll(iri(u"/d/")), Exception);
}

// Whatever asks a store for pages.
const struct {
    const char* name;
    bool removes;
    void (*run)(const IProvider& provider);
} kPagedOperations[] = {
    {"folderExists", false, [](const IProvider& provider) { provider.folderExists(iri(u"/d")); }},
    {"getFolderAttributes", false, [](const IProvider& provider) { provider.getFolderAttributes(iri(u"/d")); }},
    {"createFolder", false, [](const IProvider& provider) { provider.createFolder(iri(u"/d/new")); }},
    {"listAll", false, [](const IProvider& provider) { provider.listAll(iri(u"/d")); }},
    {"listAllRecursive", false, [](const IProvider& provider) { provider.listAllRecursive(iri(u"/d")); }},
    {"removeFolder", true, [](const IProvider& provider) { provider.removeFolder(iri(u"/d")); }},
    {"removeFolderRecursively", true, [](const IProvider& provider) { provider.removeFolderRecursively(iri(u"/d")); }},
};

TEST(ListingTest, AnInterruptIsMetBeforeAnotherPageAndBeforeRemoval) {
    for (const auto& operation : kPagedOperations) {
        for (const bool isAnsweredAtOnce : {true, false}) {
            SCOPED_TRACE(std::string(operation.name) + (isAnsweredAtOnce ? ", one page" : ", two pages"));
            const Listed store({"d/x"}, {1000, !isAnsweredAtOnce, 97, {}});
            const ScopedMainContext context;
            foundation::utInterruptState::RequestInterrupt();
            std::string failure;
            try {
                operation.run(*store.provider);
            } catch (const Exception& caught) {
                EXPECT_EQ(caught.getErrorCode(), ErrorCode::Unknown);
                failure = caught.getContext().getMessage();
            }
            const bool isInterrupted = !isAnsweredAtOnce || operation.removes;
            EXPECT_EQ(failure, isInterrupted ? "the operation was interrupted" : "");
            EXPECT_EQ(store.client->count("listObjects"), 1U);
            EXPECT_EQ(store.client->count("deleteObject"), 0U);
        }
    }
}

TEST(ListingTest, AnInterruptedListingKeepsTheEntryThatWasMovedTo) {
    const Listed store({"d/a", "d/b", "d/c"}, {1, false, 97, {}});
    const auto entries = store.provider->listAll(iri(u"/d"));
    foundation::utInterruptState::RequestInterrupt();
    entries->next();  // what other threads do is not interrupted
    const ScopedMainContext context;
    EXPECT_THROW(entries->next(), Exception);
    EXPECT_EQ(entries->get().getName(), u"b");
    EXPECT_FALSE(entries->hasNext());
}

// A client that never has anything to tell, and always has more of it.
class StuckClient : public FakeCloudClient {
public:
    std::vector<ObjectInfo> listObjects(const std::string& /*prefix*/, std::string& token,
                                        const ListOptions& /*options*/) override {
        constexpr int kLimit = 100;  // for whoever does not notice
        token = ++m_pageCount < kLimit ? "more" : "";
        return {};
    }

    int m_pageCount = 0;
};

TEST(ListingTest, AStoreThatDoesNotGetOnIsAFailure) {
    for (const auto& operation : kPagedOperations) {
        SCOPED_TRACE(operation.name);
        const auto client = std::make_shared<StuckClient>();
        try {
            operation.run(*buildCloudProvider(client, FolderPolicy::MarkerObjects, false));
            ADD_FAILURE() << "it succeeded";
        } catch (const Exception& failure) {
            EXPECT_EQ(failure.getErrorCode(), ErrorCode::Unknown) << failure.what();
        }
        EXPECT_EQ(client->m_pageCount, 2);
    }
}

// A client whose second page holds an item outside the prefix.
class StrayClient : public FakeCloudClient {
public:
    explicit StrayClient(std::string stray) : m_stray(std::move(stray)) {}

    std::vector<ObjectInfo> listObjects(const std::string& /*prefix*/, std::string& token,
                                        const ListOptions& /*options*/) override {
        if (token.empty()) {
            token = "second";
            return {{"d/first", 1, {}}};
        }
        return {{"d/good", 1, {}}, {m_stray, 1, {}}};
    }

private:
    const std::string m_stray;
};

TEST(ListingTest, APageIsTakenWholeOrNotAtAll) {
    for (const char* const stray : {"x", "e/stray", "d", "stray/d/"}) {
        SCOPED_TRACE(stray);
        const auto client = std::make_shared<StrayClient>(stray);
        const auto provider = buildCloudProvider(client, FolderPolicy::MarkerObjects, false);
        for (const auto list : {&IProvider::listAll, &IProvider::listAllRecursive}) {
            const auto entries = (*provider.*list)(iri(u"/d"));
            EXPECT_THROW(entries->next(), Exception);
            EXPECT_EQ(entries->get().getName(), u"first");
            EXPECT_FALSE(entries->hasNext());
        }
    }
}

}  // namespace

}  // namespace storage::cloudprovider::test
