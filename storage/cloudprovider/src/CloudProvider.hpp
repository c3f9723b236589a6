// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "FlatCloudEntryIterator.hpp"

#include <storage/cloudprovider/buildCloudProvider.hpp>

#include <memory>
#include <string>

namespace storage::cloudprovider {

/// The host's file system over a CloudClient.
///
/// Holds nothing that changes: every query goes to the client, and open files live in OpenFileManager. Threads: any.
class CloudProvider : public foundation::storage::provider::IProvider {
public:
    CloudProvider(std::shared_ptr<CloudClient> client, FolderPolicy folderPolicy, bool checkFolderOnCopy);
    ~CloudProvider() override;

private:
    using StorageIRI = foundation::storage::provider::StorageIRI;
    using ByteStream = foundation::storage::provider::ByteStream;
    using ByteStreamOpenOptions = foundation::storage::provider::ByteStreamOpenOptions;
    using FileAttributes = foundation::storage::provider::FileAttributes;
    using FolderAttributes = foundation::storage::provider::FolderAttributes;
    using IFolderEntryIterator = foundation::storage::provider::IFolderEntryIterator;

    // Overrides, in IProvider's order.
    bool doFileExists(const StorageIRI& iri) const override;
    bool doFolderExists(const StorageIRI& iri) const override;
    FileAttributes doGetFileAttributes(const StorageIRI& iri) const override;
    FolderAttributes doGetFolderAttributes(const StorageIRI& iri) const override;
    std::unique_ptr<ByteStream> doOpenStream(const StorageIRI& iri,
                                             const ByteStreamOpenOptions& options) const override;
    std::unique_ptr<ByteStream> doOpenReadOnlyStream(const StorageIRI& iri) const override;
    std::unique_ptr<IFolderEntryIterator> doListAll(const StorageIRI& iri) const override;
    std::unique_ptr<IFolderEntryIterator> doListFiles(const StorageIRI& iri) const override;
    std::unique_ptr<IFolderEntryIterator> doListFolders(const StorageIRI& iri) const override;
    std::unique_ptr<IFolderEntryIterator> doListAllRecursive(const StorageIRI& iri) const override;
    bool doSupportsFeature(const foundation::storage::provider::Feature& feature) const override;

    std::unique_ptr<IFolderEntryIterator> listFlat(const StorageIRI& iri, FlatCloudEntryIterator::Filter filter) const;

    // Whether anything lies at or below a folder's prefix; the root's always does.
    bool isPrefixInUse(const std::string& prefix) const;

    const std::shared_ptr<CloudClient> m_client;
    const FolderPolicy m_folderPolicy;
    const bool m_checkFolderOnCopy;
};

}  // namespace storage::cloudprovider
