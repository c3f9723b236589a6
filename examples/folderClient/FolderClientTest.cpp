// SPDX-License-Identifier: Apache-2.0
#include "FolderClient.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/testing/ClientConformance.hpp>
#include <storage/cloudprovider/testing/stored.hpp>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <thread>

using namespace storage::cloudprovider;
using namespace storage::cloudprovider::test;
using example::FolderClient;

namespace {

namespace fs = std::filesystem;

// A folder that nobody else has, deleted with all it holds.
struct TemporaryFolder {
    fs::path path;

    TemporaryFolder() {
        auto name = (fs::temp_directory_path() / "folder-client.XXXXXX").native();
        path = ::mkdtemp(name.data());
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() { fs::remove_all(path); }
};

std::shared_ptr<CloudClient> makeClientOfEmptyStore() {
    const auto folder = std::make_shared<TemporaryFolder>();
    return {new FolderClient(folder->path / "store"), [folder](FolderClient* client) { delete client; }};
}

const ClientUnderTest kFolderClient{.name = "FolderClient",
                                    .make = makeClientOfEmptyStore,
                                    .refusesReplacedParts = true,
                                    .describesUploadedParts = false};

class FolderClientTest : public ::testing::Test {
protected:
    TemporaryFolder m_folder;
    FolderClient m_client{m_folder.path};
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Folder, ClientConformance, ::testing::Values(kFolderClient), clientName);

TEST_F(FolderClientTest, OddKeysStayInTheFolderUnderNamesOfTheirOwn) {
    const std::map<std::string, std::string> names{{"a", "a"},
                                                   {"a/", "a%/%marker"},
                                                   {"a/b", "a%/b"},
                                                   {"a%", "a%25"},
                                                   {"a%2F", "a%252F"},
                                                   {"..", "%2E."},
                                                   {"../x", "%2E.%/x"},
                                                   {"x/../../y", "x%/%2E.%/%2E.%/y"},
                                                   {"/x", "%/x"},
                                                   {"a//b", "a%/%/b"},
                                                   {".%uploads", "%2E%25uploads"},
                                                   {std::string("n\0l", 3), "n%00l"}};
    for (const auto& [key, name] : names) {
        storeObject(m_client, key, name);
        EXPECT_TRUE(fs::is_regular_file(m_folder.path / name)) << name;
    }
    EXPECT_EQ(contentsOf(m_client), names);
    for (const auto& [key, name] : names) {
        m_client.deleteObject(key);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder.path), {}), 1) << "only the folder of uploads is left";
}

TEST_F(FolderClientTest, NamesThatAreTooLongAreRefusedBeforeAnythingIsStored) {
    const std::string longest(255, 'x');
    EXPECT_NO_THROW(m_client.checkObjectName(longest));
    EXPECT_NO_THROW(storeObject(m_client, longest, "x"));
    std::string deep;
    while (deep.size() < 4096) {
        deep += "folder/";
    }
    for (const auto& key : {longest + "x", longest + "/x", std::string(100, '%'), deep, std::string()}) {
        EXPECT_THROW(storeObject(m_client, key, "x"), InvalidLocationException) << key.size();
        EXPECT_THROW(m_client.startMultipartUpload(key, {}), InvalidLocationException) << key.size();
        EXPECT_FALSE(m_client.getObjectInfo(key));
        EXPECT_EQ(contentOf(m_client, key), std::nullopt);
    }
    EXPECT_THROW(m_client.checkObjectName(longest + "x"), InvalidLocationException);
}

TEST_F(FolderClientTest, FilesOfOthersAreNeitherShownNorTouched) {
    storeObject(m_client, "ours", "x");
    for (const std::string name : {".hidden", "50%", "%41", "%2e", "folder/file"}) {
        fs::create_directories((m_folder.path / name).parent_path());
        std::ofstream(m_folder.path / name) << "theirs";
    }
    EXPECT_EQ(contentsOf(m_client), (std::map<std::string, std::string>{{"ours", "x"}}));
    EXPECT_FALSE(m_client.getObjectInfo("folder"));
    EXPECT_EQ(contentOf(m_client, "folder"), std::nullopt);
    EXPECT_ANY_THROW(m_client.deleteObject("folder"));
    EXPECT_TRUE(fs::exists(m_folder.path / "folder/file"));
}

TEST_F(FolderClientTest, WhatNobodyHasWrittenToForADayIsDroppedWhenTheStoreIsOpened) {
    storeObject(m_client, "kept", "x");
    const auto uploads = m_folder.path / ".%uploads";
    const auto old = m_client.startMultipartUpload("k", {});
    const auto fresh = m_client.startMultipartUpload("k", {});
    std::ofstream(uploads / "put.killed") << "half";
    for (const auto& each : {uploads / old, uploads / "put.killed", m_folder.path / "kept"}) {
        fs::last_write_time(each, fs::file_time_type::clock::now() - std::chrono::hours(25));
    }
    FolderClient again(m_folder.path);
    EXPECT_FALSE(fs::exists(uploads / old) || fs::exists(uploads / "put.killed"));
    EXPECT_NO_THROW(again.abortMultipartUpload("k", fresh));
    EXPECT_EQ(contentOf(again, "kept"), "x");
}

TEST_F(FolderClientTest, AFolderThatGoesWithItsLastObjectDoesNotTakeOthersAlong) {
    const auto putAndDelete = [this](const std::string& key) {
        for (int round = 0; round < 300; ++round) {
            storeObject(m_client, key, key);
            EXPECT_EQ(contentOf(m_client, key), key);
            m_client.deleteObject(key);
        }
    };
    std::thread other([&] { putAndDelete("a/b/one"); });
    putAndDelete("a/b/two");
    other.join();
    EXPECT_TRUE(contentsOf(m_client).empty());
}
