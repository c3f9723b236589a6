// SPDX-License-Identifier: Apache-2.0
#include <foundation/storage/provider/Exception.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/testing/FakeCloudClient.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace storage::cloudprovider::test {

namespace {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::Feature;
using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;

class ProviderQueryTest : public ::testing::Test {
protected:
    ProviderQueryTest() {
        m_client->store("file", "12345");
        m_client->store("marked/", "");
        m_client->store("marked/file", "x");
        m_client->store("implied/deep/file", "x");
        m_client->store("lone/", "");
    }
    ~ProviderQueryTest() override { EXPECT_EQ(m_client->violations(), std::vector<std::string>()); }

    std::shared_ptr<IProvider> provider(FolderPolicy policy = FolderPolicy::MarkerObjects) const {
        return buildCloudProvider(m_client, policy, false);
    }

    const std::shared_ptr<FakeCloudClient> m_client =
        std::make_shared<FakeCloudClient>(FakeCloudClient::Options{1, true, 97, {}});
};

void expectFailure(ErrorCode code, const StorageIRI& iri, const std::function<void()>& call) {
    try {
        call();
        ADD_FAILURE() << iri;
    } catch (const Exception& failure) {
        EXPECT_EQ(failure.getErrorCode(), code) << iri;
        EXPECT_EQ(failure.getIRI(), iri);
    }
}

TEST_F(ProviderQueryTest, BuildingAsksTheStoreNothing) {
    const auto built = provider();
    EXPECT_EQ(m_client->callCount(), 0U);
    EXPECT_TRUE(built->supportsFeature(static_cast<Feature>(0)));
    EXPECT_TRUE(built->supportsFeature(static_cast<Feature>(1)));
    EXPECT_FALSE(built->supportsFeature(static_cast<Feature>(2)));
}

TEST_F(ProviderQueryTest, TellsFilesFromFolders) {
    const struct {
        const char16_t* path;
        bool isFile;
        bool isFolder;
    } rows[] = {{u"/", false, true},
                {u"", false, true},
                {u"s://h", false, true},
                {u"/file", true, false},
                {u"/./file", true, false},
                {u"/file/", true, false},
                {u"/fil", false, false},
                {u"/file/x", false, false},
                {u"/marked", false, true},
                {u"/marked/", false, true},
                {u"/marked/file", true, false},
                {u"/mark", false, false},
                {u"/implied", false, true},
                {u"/implied/deep", false, true},
                {u"/lone", false, true}};
    for (const auto policy : {FolderPolicy::MarkerObjects, FolderPolicy::ImplicitFolders}) {
        const auto built = provider(policy);
        for (const auto& row : rows) {
            const StorageIRI iri(row.path);
            EXPECT_EQ(built->fileExists(iri), row.isFile) << iri;
            EXPECT_EQ(built->folderExists(iri), row.isFolder) << iri;
            if (row.isFile) {
                EXPECT_NO_THROW(built->getFileAttributes(iri)) << iri;
            } else {
                expectFailure(ErrorCode::NotFound, iri, [&] { built->getFileAttributes(iri); });
            }
            if (row.isFolder) {
                EXPECT_NO_THROW(built->getFolderAttributes(iri)) << iri;
            } else {
                expectFailure(ErrorCode::NotFound, iri, [&] { built->getFolderAttributes(iri); });
            }
        }
    }
}

TEST_F(ProviderQueryTest, TheRootAsAFileNeedsNoCall) {
    EXPECT_FALSE(provider()->fileExists(StorageIRI(u"/")));
    expectFailure(ErrorCode::NotFound, StorageIRI(u"/."), [&] { provider()->getFileAttributes(StorageIRI(u"/.")); });
    EXPECT_EQ(m_client->callCount(), 0U);
}

TEST_F(ProviderQueryTest, AttributesComeFromTheObjects) {
    const auto file = provider()->getFileAttributes(StorageIRI(u"/file"));
    EXPECT_EQ(file.getSize().value(), 5U);
    EXPECT_EQ(file.getLastModified(), m_client->getObjectInfo("file")->LastModified);
    EXPECT_TRUE(file.isWritable());
    const auto marked = provider()->getFolderAttributes(StorageIRI(u"/marked"));
    EXPECT_EQ(marked.getLastModified(), m_client->getObjectInfo("marked/")->LastModified);
    EXPECT_TRUE(marked.isWritable());
    EXPECT_TRUE(provider()->getFolderAttributes(StorageIRI(u"/implied")).getLastModified().is_not_a_date_time());
    EXPECT_TRUE(provider()->getFolderAttributes(StorageIRI(u"/")).getLastModified().is_not_a_date_time());
}

TEST_F(ProviderQueryTest, ImplicitFoldersAreNeverAskedForAMarker) {
    const auto attributes = provider(FolderPolicy::ImplicitFolders)->getFolderAttributes(StorageIRI(u"/marked"));
    EXPECT_TRUE(attributes.getLastModified().is_not_a_date_time());
    EXPECT_EQ(m_client->count("getObjectInfo"), 0U);
    for (const auto& call : m_client->calls()) {
        EXPECT_EQ(call.options.MaxKeys, 1);
        EXPECT_EQ(call.options.Delimiter, "");
    }
}

TEST_F(ProviderQueryTest, FailuresArriveInTheHostsTerms) {
    const StorageIRI bad(u"/a\xD800");
    const StorageIRI good(u"/file");
    const auto built = provider();
    for (const auto& [iri, code] :
         {std::pair{bad, ErrorCode::InvalidLocation}, std::pair{good, ErrorCode::PermissionDenied}}) {
        expectFailure(code, iri, [&, &where = iri] { built->fileExists(where); });
        expectFailure(code, iri, [&, &where = iri] { built->folderExists(where); });
        expectFailure(code, iri, [&, &where = iri] { built->getFileAttributes(where); });
        expectFailure(code, iri, [&, &where = iri] { built->getFolderAttributes(where); });
        if (m_client->faultCount() == 0) {
            EXPECT_EQ(m_client->callCount(), 0U) << "a name without a key reached the store";
            m_client->setFault([] { throw PermissionDeniedException(); });
            m_client->failCall(1, FakeCloudClient::When::Before, FakeCloudClient::Repeat::Forever);
        }
    }
    m_client->clearFaults();
}

}  // namespace

}  // namespace storage::cloudprovider::test
