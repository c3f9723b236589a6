// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/Engine.hpp"
#include "listing/FlatCloudEntryIterator.hpp"
#include "support/host.hpp"

#include <foundation/services/PrivateFolder.hpp>
#include <storage/cloudprovider/ExtendedCloudClient.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/readInPieces.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace storage::cloudprovider {

/// The host's file system over a CloudClient.
///
/// Holds nothing that changes: every query goes to the client, and open files live in OpenFileManager. Threads: any.
class CloudProvider : public host::IProvider {
public:
    CloudProvider(std::shared_ptr<CloudClient> client, FolderPolicy folderPolicy, bool checkFolderOnCopy,
                  const ProviderOptions& options);
    ~CloudProvider() override;

    /// The provider as what it is. Errors: Exception Unsupported for iri, when it is another one.
    static const CloudProvider& of(const host::IProvider& provider, const host::StorageIRI& iri);

    /// See openSequentialWriter.hpp.
    std::unique_ptr<host::ByteStream> openSequentialWriter(const host::StorageIRI& iri) const;

    /// See openSequentialReader.hpp.
    std::unique_ptr<host::ByteStream> openSequentialReader(const host::StorageIRI& iri) const;

    /// See readInPieces.hpp.
    void readInPieces(const host::StorageIRI& iri, const PieceSink& sink) const;

private:
    using StorageIRI = host::StorageIRI;
    using ByteStream = host::ByteStream;
    using ByteStreamOpenOptions = host::ByteStreamOpenOptions;
    using FileAttributes = host::FileAttributes;
    using FolderAttributes = host::FolderAttributes;
    using ReplacementPolicy = host::ReplacementPolicy;
    using IFolderEntryIterator = host::IFolderEntryIterator;

    // Overrides, in IProvider's order.
    void doCreateFile(const StorageIRI& iri) const override;
    void doCreateFolder(const StorageIRI& iri) const override;
    bool doFileExists(const StorageIRI& iri) const override;
    bool doFolderExists(const StorageIRI& iri) const override;
    void doRemoveFile(const StorageIRI& iri) const override;
    void doMoveFile(const StorageIRI& source, const StorageIRI& destination,
                    const ReplacementPolicy& policy) const override;
    void doRemoveFolder(const StorageIRI& iri) const override;
    void doRemoveFolderRecursively(const StorageIRI& iri) const override;
    void doMoveFolder(const StorageIRI& source, const StorageIRI& destination,
                      const ReplacementPolicy& policy) const override;
    FileAttributes doGetFileAttributes(const StorageIRI& iri) const override;
    FolderAttributes doGetFolderAttributes(const StorageIRI& iri) const override;
    std::unique_ptr<ByteStream> doOpenStream(const StorageIRI& iri,
                                             const ByteStreamOpenOptions& options) const override;
    std::unique_ptr<ByteStream> doOpenReadOnlyStream(const StorageIRI& iri) const override;
    std::unique_ptr<IFolderEntryIterator> doListAll(const StorageIRI& iri) const override;
    std::unique_ptr<IFolderEntryIterator> doListFiles(const StorageIRI& iri) const override;
    std::unique_ptr<IFolderEntryIterator> doListFolders(const StorageIRI& iri) const override;
    std::unique_ptr<IFolderEntryIterator> doListAllRecursive(const StorageIRI& iri) const override;
    void doCopyFile(const StorageIRI& source, const StorageIRI& destination,
                    const ReplacementPolicy& policy) const override;
    void doSetLastModified(const StorageIRI& iri, const boost::posix_time::ptime& time) const override;
    void doSetWritable(const StorageIRI& iri, bool writable) const override;
    bool doSupportsFeature(const host::Feature& feature) const override;

    std::unique_ptr<IFolderEntryIterator> listFlat(const StorageIRI& iri, FlatCloudEntryIterator::Filter filter) const;

    // Whether anything lies at or below a folder's prefix; the root's always does.
    bool isPrefixInUse(const std::string& prefix) const;

    // Everything at or below a folder's prefix, folded at the delimiter, all pages.
    std::vector<ObjectInfo> listAllObjects(const StorageIRI& iri, const std::string& delimiter) const;

    void removeObjects(const std::vector<ObjectInfo>& items, std::size_t first, std::size_t count) const;
    void createEmptyObject(const std::string& key) const;
    void failIfOpen(const StorageIRI& resolved) const;

    // Whether both name one existing file, so that there is nothing to transfer. An absent one is not found.
    bool isSameFile(const StorageIRI& source, const StorageIRI& destination) const;

    const std::shared_ptr<ExtendedCloudClient> m_client;
    const FolderPolicy m_folderPolicy;
    const bool m_checkFolderOnCopy;
    const Engine m_engine;
    const std::shared_ptr<foundation::PrivateFolder> m_folderOfParts;  // made once, however many files follow
};

}  // namespace storage::cloudprovider
