// SPDX-License-Identifier: Apache-2.0
#include "WildcardIterator.hpp"

#include <foundation/services/Text.hpp>
#include <foundation/storage/provider/IProvider.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <stdexcept>
#include <vector>

namespace foundation::storage::provider {

namespace {

using Names = std::vector<std::u16string>;

class NameIterator : public IClonableFolderEntryIterator<NameIterator> {
public:
    explicit NameIterator(Names names) : m_names(std::move(names)) {}
    FolderEntry get() const override { return {m_names.at(m_next - 1), FolderAttributes({}, true)}; }
    bool hasNext() const override { return m_next < m_names.size(); }
    void next() override { ++m_next; }

private:
    Names m_names;
    std::size_t m_next = 0;
};

// Has folders only, and the few operations that the others are made from.
class FolderProvider : public IProvider {
public:
    mutable std::set<StorageIRI> m_folders{StorageIRI(u"/")};
    std::function<void(const StorageIRI&)> m_beforeCreation = [](const StorageIRI& /*iri*/) {};

private:
    std::unique_ptr<IFolderEntryIterator> list(Names names) const {
        return std::make_unique<NameIterator>(std::move(names));
    }
    void doCreateFolder(const StorageIRI& iri) const override {
        m_beforeCreation(iri);
        if (!m_folders.insert(iri).second) {
            throw Exception(ErrorCode::AlreadyExists, iri);
        }
    }
    bool doFileExists(const StorageIRI& iri) const override { return iri == StorageIRI(u"/file"); }
    bool doFolderExists(const StorageIRI& iri) const override { return m_folders.count(iri) != 0; }
    std::unique_ptr<IFolderEntryIterator> doListAll(const StorageIRI& /*iri*/) const override {
        return list({u"a.txt", u"b.txt", u"c"});
    }
    std::unique_ptr<IFolderEntryIterator> doListFiles(const StorageIRI& /*iri*/) const override {
        return list({u"a.txt", u"b.txt"});
    }
    std::unique_ptr<IFolderEntryIterator> doListFolders(const StorageIRI& /*iri*/) const override {
        return list({u"c"});
    }
    std::unique_ptr<IFolderEntryIterator> doListAllRecursive(const StorageIRI& /*iri*/) const override {
        return list({u"a.txt", u"c", u"c/d.txt", u"c.txt/e"});
    }
};

Names namesOf(std::unique_ptr<IFolderEntryIterator> entries) {
    Names names;
    while (entries->hasNext()) {
        entries->next();
        names.push_back(entries->get().getName());
    }
    EXPECT_THROW(entries->next(), std::logic_error);
    return names;
}

const StorageIRI kRoot(u"/");
constexpr const char16_t* kPattern = u"*.txt";

TEST(IProviderTest, RecursiveCreationMakesWhatIsMissing) {
    const FolderProvider provider;
    provider.createFolder(StorageIRI(u"/a"));
    provider.createFolderRecursive(StorageIRI(u"/a/b/c"));
    provider.createFolderRecursive(StorageIRI(u"/a/b/c"));
    const std::set<StorageIRI> expected{kRoot, StorageIRI(u"/a"), StorageIRI(u"/a/b"), StorageIRI(u"/a/b/c")};
    EXPECT_EQ(provider.m_folders, expected);
}

TEST(IProviderTest, RecursiveCreationGoesOnWithWhatOthersMake) {
    const StorageIRI other(u"/a");
    const StorageIRI path(u"/a/b/c");
    FolderProvider provider;
    std::vector<StorageIRI> tried;
    // Another thread is faster: with the folder that is about to be made, and with the next one.
    provider.m_beforeCreation = [&](const StorageIRI& iri) {
        tried.push_back(iri);
        if (iri == other) {
            provider.m_folders.insert({other, StorageIRI(u"/a/b")});
        }
    };
    provider.createFolderRecursive(path);
    EXPECT_EQ(provider.m_folders.count(path), 1U);
    EXPECT_EQ(tried, (std::vector<StorageIRI>{other, path})) << "made what was there";

    // What is there is no folder, or something else failed.
    for (const auto code : {ErrorCode::AlreadyExists, ErrorCode::PermissionDenied}) {
        FolderProvider failing;
        failing.m_beforeCreation = [&](const StorageIRI& iri) {
            if (code != ErrorCode::AlreadyExists) {
                failing.m_folders.insert(iri);
            }
            throw Exception(code, iri);
        };
        try {
            failing.createFolderRecursive(path);
            ADD_FAILURE();
        } catch (const Exception& failure) {
            EXPECT_EQ(failure.getErrorCode(), code);
            EXPECT_EQ(failure.getIRI(), other);
        }
    }
}

TEST(IProviderTest, ExistsAsksForFilesAndFolders) {
    const FolderProvider provider;
    EXPECT_TRUE(provider.exists(kRoot));
    EXPECT_TRUE(provider.exists(StorageIRI(u"/file")));
    EXPECT_FALSE(provider.exists(StorageIRI(u"/x")));
    EXPECT_EQ(provider.existsExtended(kRoot), ResourceKind::Folder);
    EXPECT_EQ(provider.existsExtended(StorageIRI(u"/file")), ResourceKind::File);
    EXPECT_EQ(provider.existsExtended(StorageIRI(u"/x")), ResourceKind::None);
}

TEST(IProviderTest, NamesAndWildcardsComeFromThePlainListings) {
    const FolderProvider provider;
    EXPECT_EQ(namesOf(provider.listAllWildcards(kRoot, kPattern)), (Names{u"a.txt", u"b.txt"}));
    EXPECT_EQ(namesOf(provider.listAllNamesOnlyWildcards(kRoot, u"?")), Names{u"c"});
    EXPECT_EQ(namesOf(provider.listFilesWildcards(kRoot, u"b*")), Names{u"b.txt"});
    EXPECT_EQ(namesOf(provider.listFilesNamesOnlyWildcards(kRoot, u"a*")), Names{u"a.txt"});
    EXPECT_EQ(namesOf(provider.listFoldersWildcards(kRoot, u"?")), Names{u"c"});
    EXPECT_EQ(namesOf(provider.listFoldersNamesOnlyWildcards(kRoot, kPattern)), Names{});
    EXPECT_EQ(namesOf(provider.listAllRecursiveWildcards(kRoot, kPattern)), (Names{u"a.txt", u"c/d.txt"}));
    EXPECT_EQ(namesOf(provider.listAllRecursiveNamesOnlyWildcards(kRoot, u"e")), Names{u"c.txt/e"});
    const auto original = provider.listAllWildcards(kRoot, kPattern);
    EXPECT_THROW(original->get(), std::logic_error);
    original->next();
    EXPECT_EQ(namesOf(original->clone()), Names{u"b.txt"});
    EXPECT_EQ(original->get().getName(), u"a.txt") << "moved by its clone";
}

TEST(IProviderTest, WhatCannotBeMadeFromOthersIsUnsupported) {
    IProvider provider;
    const StorageIRI iri(u"/x");
    const ReplacementPolicy policy = ReplacementPolicy::Fail;
    const std::function<void()> calls[] = {
        [&] { provider.createFile(iri); },
        [&] { provider.createFolderRecursive(iri); },
        [&] { provider.exists(iri); },
        [&] { provider.moveFile(iri, kRoot, policy); },
        [&] { provider.moveFolder(iri, kRoot, policy); },
        [&] { provider.copyFileAtomic(iri, kRoot, policy); },
        [&] { provider.openTransactionalStream(iri, {}); },
        [&] { provider.listFilesWildcards(iri, kPattern); },
        [&] { provider.listAllRecursiveNamesOnly(iri); },
        [&] { provider.setWritable(iri, true); },
        [&] { provider.truncateToSize(iri, 1); },
    };
    for (const auto& call : calls) {
        SCOPED_TRACE(&call - calls);
        try {
            call();
            ADD_FAILURE();
        } catch (const Exception& failure) {
            EXPECT_EQ(static_cast<int>(failure.getErrorCode()), 11);
            EXPECT_STREQ(failure.what(), "Unsupported: /x");
        }
    }
    EXPECT_FALSE(provider.supportsFeature(Feature::ReadStreams));
    EXPECT_NO_THROW(provider.shutdown());
}

TEST(WildcardTest, MatchesWholeNames) {
    const struct {
        const char16_t* name;
        const char16_t* pattern;
        bool matches;
    } rows[] = {{u"", u"", true},
                {u"", u"*", true},
                {u"", u"?", false},
                {u"a", u"", false},
                {u"a", u"?", true},
                {u"a", u"A", false},
                {u"ab", u"?", false},
                {u"abc", u"a*c", true},
                {u"ac", u"a*c", true},
                {u"acb", u"a*c", false},
                {u"abcbc", u"a*bc", true},
                {u"aaab", u"*a?b", true},
                {u"ab", u"a**", true},
                {u"a.b", u"a?b", true},
                {u"a*b", u"a*b", true},
                {u"mississippi", u"*s*p*", true},
                {u"mississippi", u"*issip", false},
                {u"\xD83D\xDE00", u"?", true},
                {u"\xD83D\xDE00", u"??", false},
                {u"x\xD83D\xDE00y", u"x*?y", true}};
    for (const auto& row : rows) {
        EXPECT_EQ(matchesWildcard(row.name, row.pattern), row.matches)
            << toUtf8(row.name) << ' ' << toUtf8(row.pattern);
    }
}

}  // namespace

}  // namespace foundation::storage::provider
