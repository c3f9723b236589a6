// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/ProviderOptions.hpp>
#include <storage/cloudprovider/testing/FakeCloudClient.hpp>
#include <storage/cloudprovider/testing/stored.hpp>

#include <boost/filesystem/path.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace storage::cloudprovider::test {

/// Sets an environment variable for as long as it lives, then puts the former value back. One thread.
class ScopedVariable {
public:
    ScopedVariable(std::string name, const std::string& value);
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;
    ~ScopedVariable();

private:
    const std::string m_name;
    std::string m_former;
    bool m_wasSet = false;
};

/// A fresh folder that temporary files go to; deleted in the end. One thread.
class ScopedTemporaryFolder {
public:
    ScopedTemporaryFolder();
    ~ScopedTemporaryFolder();

    const boost::filesystem::path& path() const { return m_path; }
    /// Those below it, at any depth.
    std::vector<boost::filesystem::path> files() const;
    std::size_t fileCount() const { return files().size(); }

private:
    const boost::filesystem::path m_path;
    const ScopedVariable m_variable;
};

/// A provider over a fake store, with small parts. In the end nothing may be left: no temporary file, no open
/// descriptor, no upload, no breach of the store's contract.
class EngineTest : public testing::Test {
protected:
    using IRI = foundation::storage::provider::StorageIRI;
    using Options = foundation::storage::provider::ByteStreamOpenOptions;
    using Stream = std::unique_ptr<foundation::storage::provider::ByteStream>;

    static constexpr std::uint64_t kPartSize = 8;

    EngineTest();
    void TearDown() override;

    /// A way of copying and moving files. Each is good for every store, but only one that tells versions copies inside.
    struct TransferMode {
        const char* name;
        ProviderOptions options{};
        bool tellsVersions = false;

        bool storesFirst() const { return options.moveOrder == MoveOrder::StoreDestinationFirst; }
    };
    static std::vector<TransferMode> transferModes();

    static Options update(Options::WriteMode mode = Options::WriteMode::Positioned);
    static Options replace();
    static void write(const Stream& stream, const std::string& bytes);
    static std::string readAll(const Stream& stream);
    /// Bytes of every value, the same ones for the same count.
    static std::string someBytes(std::size_t count);

    Stream openFile(const Options& options) const { return m_provider->openStream(m_file, options); }
    Stream openForReading() const { return m_provider->openReadOnlyStream(m_file); }
    void allowViolations() { m_expectsNoViolations = false; }
    /// Boost's mapped_file keeps its descriptor open when memory fails while it maps.
    void allowLeftDescriptors() { m_expectsNoDescriptors = false; }

    /// A provider of its own over the fake store, as another process would have it; its client tells versions.
    std::shared_ptr<foundation::storage::provider::IProvider> anotherProcess() const;
    /// Start again with an empty store, and a client that tells versions or not.
    void startAnew(bool tellsVersions = false);
    void startAnew(bool tellsVersions, const ProviderOptions& options);
    void startAnew(const TransferMode& mode) { startAnew(mode.tellsVersions, mode.options); }
    /// Start again with so many transfer threads, and the file stored.
    void startWith(std::uint32_t transferThreads, const std::string& content, bool tellsVersions = true);
    bool isOpen() const { return isOpen(m_file); }
    bool isOpen(const IRI& iri) const;

    /// Entries of a folder, such as /proc/self/fd, which counts its own descriptor, too.
    static std::size_t countEntries(const boost::filesystem::path& folder);

    ScopedTemporaryFolder m_folder;
    ScopedVariable m_partSize{"VX_CLOUD_PART_SIZE_OVERRIDE", std::to_string(kPartSize)};
    std::shared_ptr<FakeCloudClient> m_client = std::make_shared<FakeCloudClient>();
    std::shared_ptr<CloudClient> m_providersClient = m_client;
    ProviderOptions m_options;                // of the providers made from now on
    FakeCloudClient::Options m_storeOptions;  // of the stores that startAnew makes
    std::shared_ptr<foundation::storage::provider::IProvider> m_provider;
    const std::string m_key = "folder/file";
    const IRI m_file{u"/folder/file"};

private:
    bool m_expectsNoViolations = true;
    bool m_expectsNoDescriptors = true;
    const std::size_t m_descriptorsBefore = countEntries("/proc/self/fd");
};

}  // namespace storage::cloudprovider::test
