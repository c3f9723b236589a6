// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"

#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/testing/NamespaceModel.hpp>
#include <storage/cloudprovider/testing/VersionedFakeClient.hpp>

#include <cstdlib>
#include <random>

namespace storage::cloudprovider::test {

class NamespaceModelTest : public EngineTest {
protected:
    void start(std::uint64_t seed) {
        std::mt19937_64 random(seed);
        const auto pick = [&](std::uint64_t least, std::uint64_t most) {
            return std::uniform_int_distribution<std::uint64_t>(least, most)(random);
        };
        FakeCloudClient::Options options;
        options.pageSize = pick(1, 3);
        options.emptyPages = pick(0, 1) == 1;
        options.copiesInStore = pick(0, 3) != 0;
        m_client = std::make_shared<FakeCloudClient>(options);
        m_providersClient = m_client;
        const auto modes = transferModes();
        const auto& mode = modes.at(pick(0, modes.size() - 1));
        if (mode.tellsVersions) {
            m_providersClient = std::make_shared<VersionedFakeClient>(m_client);
        }
        const NamespaceModel::Traits traits{.policy = static_cast<FolderPolicy>(pick(0, 1)),
                                            .checkFolderOnCopy = pick(0, 1) == 1,
                                            .mostBytes = 3 * kPartSize};
        m_provider = buildCloudProvider(m_providersClient, traits.policy, traits.checkFolderOnCopy, mode.options);
        m_model.emplace(seed, traits, *m_provider, *m_client);
    }

    std::optional<NamespaceModel> m_model;
};

// MODEL_SEED=N runs that seed alone.
TEST_F(NamespaceModelTest, FilesAndFoldersBehaveLikeAPlainMap) {
    const char* const chosen = std::getenv("MODEL_SEED");
    const std::uint64_t first = chosen != nullptr ? std::strtoull(chosen, nullptr, 10) : 1;
    const std::uint64_t last = chosen != nullptr ? first : 40;
    for (std::uint64_t seed = first; seed <= last; ++seed) {
        SCOPED_TRACE("MODEL_SEED=" + std::to_string(seed));
        start(seed);
        for (int count = 0; count < 60; ++count) {
            SCOPED_TRACE("step " + std::to_string(count));
            m_model->step();
            m_model->compare();
            ASSERT_FALSE(HasFailure());
        }
        ASSERT_EQ(m_client->violations(), std::vector<std::string>());
    }
}

}  // namespace storage::cloudprovider::test
