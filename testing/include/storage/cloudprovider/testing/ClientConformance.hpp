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

/// A store to hold against what CloudClient promises, and where it may differ.
struct ClientUnderTest {
    std::string name;                                    ///< of letters and digits
    std::function<std::shared_ptr<CloudClient>()> make;  ///< a client of an empty store
    std::uint64_t minPartSize = 10;                      ///< the smallest part that is not the last one
    bool takesAnyBytesInKeys = true;                     ///< not only UTF-8
    bool copiesAnyRange = true;                          ///< not only whole parts of the stored object
    bool missesDeleted = true;                           ///< deleting what is not there is an error
    bool refusesReplacedParts = false;                   ///< copyPart throws for the tag of an object that is no more
    bool tellsVersions = false;                          ///< an ExtendedCloudClient that knows what was replaced
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
    /// Send bytes as the upload's next part behind parts, and note it there.
    void send(const std::string& key, const std::string& id, std::vector<PartInfo>& parts, const std::string& bytes);
    /// Take the stored object's next size bytes behind parts as the upload's next part, and note it there.
    void copy(const std::string& key, const std::string& id, std::vector<PartInfo>& parts, std::uint64_t size);
    /// Store an object of three parts: two of the smallest size and one of 7 bytes; answer its bytes.
    std::string storeParts(const std::string& key);

    std::shared_ptr<CloudClient> m_client;  ///< the client under test; set by SetUp
};

}  // namespace storage::cloudprovider::test
