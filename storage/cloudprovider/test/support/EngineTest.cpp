// SPDX-License-Identifier: Apache-2.0
#include "EngineTest.hpp"

#include "openfile/OpenFileManager.hpp"

#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/testing/VersionedFakeClient.hpp>

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace storage::cloudprovider::test {

ScopedVariable::ScopedVariable(std::string name, const std::string& value) : m_name(std::move(name)) {
    if (const char* former = std::getenv(m_name.c_str())) {
        m_former = former;
        m_wasSet = true;
    }
    ::setenv(m_name.c_str(), value.c_str(), 1);
}

ScopedVariable::~ScopedVariable() {
    if (m_wasSet) {
        ::setenv(m_name.c_str(), m_former.c_str(), 1);
    } else {
        ::unsetenv(m_name.c_str());
    }
}

ScopedTemporaryFolder::ScopedTemporaryFolder()
    : m_path(boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("engine-%%%%%%%%")),
      m_variable("TMPDIR", m_path.native()) {
    boost::filesystem::create_directory(m_path);
}

ScopedTemporaryFolder::~ScopedTemporaryFolder() {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(m_path, ignored);
}

// Files may go meanwhile.
std::vector<boost::filesystem::path> ScopedTemporaryFolder::files() const {
    std::vector<boost::filesystem::path> files;
    boost::system::error_code gone;
    for (boost::filesystem::recursive_directory_iterator entry(m_path, gone), end; entry != end;
         entry.increment(gone)) {
        if (boost::filesystem::is_regular_file(entry->path(), gone)) {
            files.push_back(entry->path());
        }
    }
    return files;
}

std::size_t EngineTest::countEntries(const boost::filesystem::path& folder) {
    return static_cast<std::size_t>(
        std::distance(boost::filesystem::directory_iterator(folder), boost::filesystem::directory_iterator()));
}

EngineTest::EngineTest() : m_provider(buildCloudProvider(m_client, FolderPolicy::MarkerObjects, false)) {}

std::shared_ptr<foundation::storage::provider::IProvider> EngineTest::anotherProcess() const {
    return buildCloudProvider(std::make_shared<VersionedFakeClient>(m_client), FolderPolicy::MarkerObjects, false,
                              m_options);
}

std::vector<EngineTest::TransferMode> EngineTest::transferModes() {
    TransferMode first{"the source is removed first"};
    TransferMode plain{"the destination is stored first"};
    plain.options.moveOrder = MoveOrder::StoreDestinationFirst;
    TransferMode versions{"the destination is stored first, versions", plain.options, true};
    TransferMode inStore{"inside the store", plain.options, true};
    inStore.options.copyInStore = true;
    return {first, plain, versions, inStore};
}

void EngineTest::startAnew(bool tellsVersions, const ProviderOptions& options) {
    m_options = options;
    startAnew(tellsVersions);
}

void EngineTest::startAnew(bool tellsVersions) {
    m_client = std::make_shared<FakeCloudClient>(m_storeOptions);
    m_providersClient = m_client;
    if (tellsVersions) {
        m_providersClient = std::make_shared<VersionedFakeClient>(m_client);
    }
    m_provider = buildCloudProvider(m_providersClient, FolderPolicy::MarkerObjects, false, m_options);
}

void EngineTest::startWith(std::uint32_t transferThreads, const std::string& content, bool tellsVersions) {
    m_options.transferThreads = transferThreads;
    startAnew(tellsVersions);
    m_client->store(m_key, content);
    m_client->clearCalls();
}

std::string EngineTest::someBytes(std::size_t count) {
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [next = 0]() mutable { return static_cast<char>(next++ * 7); });
    return bytes;
}

bool EngineTest::isOpen(const IRI& iri) const {
    return OpenFileManager::instance().isOpen(iri, m_providersClient);
}

void EngineTest::TearDown() {
    m_provider.reset();  // with its threads
    EXPECT_EQ(m_folder.fileCount(), 0U) << "temporary files are left";
    if (m_expectsNoDescriptors) {
        EXPECT_EQ(countEntries("/proc/self/fd"), m_descriptorsBefore) << "descriptors are left";
    }
    EXPECT_EQ(m_client->openUploads(), 0U) << "uploads are left";
    if (m_expectsNoViolations) {
        EXPECT_EQ(m_client->violations(), std::vector<std::string>());
    }
}

EngineTest::Options EngineTest::update(Options::WriteMode mode) {
    return {Options::Access::ReadWrite, Options::ExistingContent::Preserve, Options::Presence::Optional, mode};
}

EngineTest::Options EngineTest::replace() {
    return {Options::Access::ReadWrite, Options::ExistingContent::Discard, Options::Presence::Optional,
            Options::WriteMode::Positioned};
}

void EngineTest::write(const Stream& stream, const std::string& bytes) {
    const auto count = static_cast<std::int64_t>(bytes.size());
    ASSERT_EQ(stream->write(bytes.data(), count), count);
}

std::string EngineTest::readAll(const Stream& stream) {
    std::string bytes;
    std::array<char, 5> piece{};
    stream->seek(0, std::ios_base::beg);
    for (auto count = stream->read(piece.data(), piece.size()); count > 0;
         count = stream->read(piece.data(), piece.size())) {
        bytes.append(piece.data(), static_cast<std::size_t>(count));
    }
    return bytes;
}

}  // namespace storage::cloudprovider::test
