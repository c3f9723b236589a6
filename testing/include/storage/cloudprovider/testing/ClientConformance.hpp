// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>
#include <storage/cloudprovider/testing/export.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace storage::cloudprovider::test {

/// A store to be checked against what CloudClient promises, and where it may differ.
struct ClientUnderTest {
    /// Of ASCII letters and digits; no two alike in one instantiation.
    std::string name;
    /// Makes a client of an empty store, which nobody else uses until the client is gone. Called at the start of each
    /// test, on its thread; null, or what it throws, fails the test. Tests may run in several processes at once.
    std::function<std::shared_ptr<CloudClient>()> make;
    /// The smallest part that the store takes, but for an object's last one; in bytes, not 0. Most tests of
    /// uploads send some parts of that size.
    std::uint64_t minPartSize = 10;
    /// Keys may be any bytes, not only UTF-8.
    bool takesAnyBytesInKeys = true;
    /// copyPart takes any bytes of the stored object, not only whole parts of it.
    bool copiesAnyRange = true;
    /// Deleting what is not there is a ResourceNotFoundException; else it is no error.
    bool missesDeleted = true;
    /// copyPart throws a CloudException for the tag of an object that was replaced.
    bool refusesReplacedParts = false;
    /// The client is an ExtendedCloudClient that tells versions; the tests of those are skipped for others.
    bool tellsVersions = false;
    /// Versions name contents: the same bytes put again may have the version that they had before.
    bool namesContents = false;
    /// getObjectParts and describeObject answer the parts that an upload was completed with; else parts of the client's
    /// own choice, or none.
    bool describesUploadedParts = true;
    /// copyRange and copyRun may take bytes of a newer version than was asked for, and leave it to the completion to
    /// refuse them.
    bool refusesCopiesLate = false;
    /// Completing an upload once more may be a success that changes nothing.
    bool repeatsCompletions = false;
    /// copyObject copies inside the store; else it answers false and does nothing. Of a client that tells versions.
    bool copiesInStore = false;
};

/// Write its name, for GoogleTest's messages.
CLOUDPROVIDER_TESTING_EXPORT std::ostream& operator<<(std::ostream& stream, const ClientUnderTest& client);

/// The client's name, for the names of its tests. It is the last argument of
///
///     INSTANTIATE_TEST_SUITE_P(MyStore, ClientConformance, ::testing::Values(kMyClient), clientName);
CLOUDPROVIDER_TESTING_EXPORT std::string clientName(const ::testing::TestParamInfo<ClientUnderTest>& info);

/// What every CloudClient has to do, whatever it stores into, and every ExtendedCloudClient that tells versions.
///
/// The tests come with the library; a program that instantiates the suite, as clientName tells, runs them. Each test
/// has a fresh client, stores at most some MB, or some parts of minPartSize, and deletes only part of that again. One
/// of them uses the client in two threads.
///
/// The operations below are for these tests, and for a program's own TEST_P(ClientConformance, ...). What the client
/// throws passes through them; one thread, but for put, get and list.
class CLOUDPROVIDER_TESTING_EXPORT ClientConformance : public ::testing::TestWithParam<ClientUnderTest> {
protected:
    /// Make the client under test.
    void SetUp() override;

    /// The client under test, if it tells versions; else null.
    std::shared_ptr<ExtendedCloudClient> versioned() const;
    /// Store an object of these bytes in one go.
    void put(const std::string& key, const std::string& bytes);
    /// The bytes of an object from position first to last, both included; 0 and 0 are the whole object.
    std::string get(const std::string& key, std::uint64_t first = 0, std::uint64_t last = 0);
    /// All entries of a listing. Fails the test when a page has more than maxKeys entries; -1 leaves that to the store.
    std::vector<ObjectInfo> list(const std::string& prefix, const std::string& delimiter, int maxKeys);
    /// Send bytes as the upload's next part after parts, and add it to them.
    void send(const std::string& key, const std::string& id, std::vector<PartInfo>& parts, const std::string& bytes);
    /// Take the stored object's next size bytes after parts as the upload's next part, and add it to them.
    void copy(const std::string& key, const std::string& id, std::vector<PartInfo>& parts, std::uint64_t size);
    /// Store an object of three parts: two of the smallest size and one of 7 bytes; answer its bytes.
    std::string storeParts(const std::string& key);

    std::shared_ptr<CloudClient> m_client;  ///< the client under test; set by SetUp
};

}  // namespace storage::cloudprovider::test
