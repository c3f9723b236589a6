// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/CloudClient.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/testing/export.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>

namespace storage::cloudprovider::test {

/// Files and folders of a provider, beside what a plain map of keys would make of the same operations.
///
/// Each step is one operation that the seed decides: creating, writing, removing, moving or copying. What differs from
/// the map fails the running test; what the provider throws unexpectedly passes through. One thread.
class CLOUDPROVIDER_TESTING_EXPORT NamespaceModel {
public:
    /// What is modelled.
    struct Traits {
        FolderPolicy policy = FolderPolicy::MarkerObjects;  ///< the provider's
        bool checkFolderOnCopy = false;                     ///< the provider's
        bool missesRemoved = true;                          ///< removing a missing file is an error; else it is none
        std::uint64_t mostBytes = 0;                        ///< of a file
    };

    /// provider: of an empty store. store: the same store, on a way that does not fail. Both are referred to.
    NamespaceModel(std::uint64_t seed, const Traits& traits, foundation::storage::provider::IProvider& provider,
                   CloudClient& store);
    NamespaceModel(const NamespaceModel&) = delete;
    NamespaceModel& operator=(const NamespaceModel&) = delete;
    ~NamespaceModel();

    /// Take one step, and compare what it did.
    void step();
    /// Compare every object, and the queries and listings of some folder.
    void compare();

private:
    class Plain;

    std::uint64_t pick(std::uint64_t least, std::uint64_t most);
    std::string pickKey();
    void write(const std::string& key, const std::string& bytes);
    static void check(const char* operation, const std::function<void()>& action,
                      const std::optional<foundation::storage::provider::ErrorCode>& expected);

    // Set by the constructor, never changed.
    foundation::storage::provider::IProvider& m_provider;
    CloudClient& m_store;
    const std::uint64_t m_mostBytes;

    std::mt19937_64 m_random;
    std::unique_ptr<Plain> m_plain;
};

}  // namespace storage::cloudprovider::test
