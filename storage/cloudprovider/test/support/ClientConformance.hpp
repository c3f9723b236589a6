// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

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

std::ostream& operator<<(std::ostream& stream, const ClientUnderTest& client);

/// For the last argument of INSTANTIATE_TEST_SUITE_P(Name, ClientConformance, Values(...), clientName).
std::string clientName(const ::testing::TestParamInfo<ClientUnderTest>& info);

/// What every CloudClient has to do, whatever it stores into, and every ExtendedCloudClient that tells versions.
class ClientConformance : public ::testing::TestWithParam<ClientUnderTest> {
protected:
    void SetUp() override;

    /// The client under test, if it tells versions.
    std::shared_ptr<ExtendedCloudClient> versioned() const;
    void put(const std::string& key, const std::string& bytes);
    std::string get(const std::string& key, std::uint64_t first = 0, std::uint64_t last = 0);
    /// All entries of a listing, whose pages it checks.
    std::vector<ObjectInfo> list(const std::string& prefix, const std::string& delimiter, int maxKeys);
    /// Send bytes as one part, and note it in parts.
    void send(const std::string& key, const std::string& id, std::vector<PartInfo>& parts, const std::string& bytes);
    /// Take the next size bytes of the stored object as one part, and note it in parts.
    void copy(const std::string& key, const std::string& id, std::vector<PartInfo>& parts, std::uint64_t size);
    /// Store an object of three parts: two of the smallest size and one of 7 bytes; answer its bytes.
    std::string storeParts(const std::string& key);

    std::shared_ptr<CloudClient> m_client;
};

}  // namespace storage::cloudprovider::test
