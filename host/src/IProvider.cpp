// SPDX-License-Identifier: Apache-2.0
#include <foundation/storage/provider/IProvider.hpp>

#include "WildcardIterator.hpp"

#include <boost/property_tree/ptree.hpp>

#include <vector>

namespace foundation::storage::provider {

namespace {

[[noreturn]] void unsupported(const StorageIRI& iri) {
    throw Exception(ErrorCode::Unsupported, iri);
}

std::unique_ptr<IFolderEntryIterator> filtered(std::unique_ptr<IFolderEntryIterator> entries,
                                               const std::u16string& pattern) {
    return std::make_unique<WildcardIterator>(std::move(entries), pattern);
}

}  // namespace

IProvider::~IProvider() = default;

boost::property_tree::ptree IProvider::getExtendedAttributes(const StorageIRI& iri) const {
    return doGetExtendedAttributes(iri);
}

boost::property_tree::ptree IProvider::getProviderStorageInfo(const StorageIRI& iri) const {
    return doGetProviderStorageInfo(iri);
}

void IProvider::doCreateFile(const StorageIRI& iri) const {
    unsupported(iri);
}

void IProvider::doCreateFolder(const StorageIRI& iri) const {
    unsupported(iri);
}

void IProvider::doCreateFolderRecursive(const StorageIRI& iri) const {
    std::vector<StorageIRI> missing;
    for (StorageIRI folder = iri; !doFolderExists(folder); folder = folder.getParent()) {
        missing.push_back(folder);
        if (!folder.hasParent()) {
            break;
        }
    }
    // A missing folder may be there by now: made under another name of the path (/x/. after /x), or by somebody else.
    for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
        if (doFolderExists(*folder)) {
            continue;
        }
        try {
            doCreateFolder(*folder);
        } catch (const Exception& failure) {
            if (failure.getErrorCode() != ErrorCode::AlreadyExists || !doFolderExists(*folder)) {
                throw;
            }
        }
    }
}

bool IProvider::doFileExists(const StorageIRI& iri) const {
    unsupported(iri);
}

bool IProvider::doFolderExists(const StorageIRI& iri) const {
    unsupported(iri);
}

void IProvider::doRemoveFile(const StorageIRI& iri) const {
    unsupported(iri);
}

void IProvider::doMoveFile(const StorageIRI& source, const StorageIRI& /*destination*/,
                           const ReplacementPolicy& /*policy*/) const {
    unsupported(source);
}

void IProvider::doRemoveFolder(const StorageIRI& iri) const {
    unsupported(iri);
}

void IProvider::doRemoveFolderRecursively(const StorageIRI& iri) const {
    unsupported(iri);
}

void IProvider::doMoveFolder(const StorageIRI& source, const StorageIRI& /*destination*/,
                             const ReplacementPolicy& /*policy*/) const {
    unsupported(source);
}

FileAttributes IProvider::doGetFileAttributes(const StorageIRI& iri) const {
    unsupported(iri);
}

FolderAttributes IProvider::doGetFolderAttributes(const StorageIRI& iri) const {
    unsupported(iri);
}

std::unique_ptr<ByteStream> IProvider::doOpenStream(const StorageIRI& iri,
                                                    const ByteStreamOpenOptions& /*options*/) const {
    unsupported(iri);
}

std::unique_ptr<ByteStream> IProvider::doOpenReadOnlyStream(const StorageIRI& iri) const {
    unsupported(iri);
}

std::unique_ptr<ByteStream> IProvider::doOpenTransactionalStream(const StorageIRI& iri,
                                                                 const ByteStreamOpenOptions& /*options*/) const {
    unsupported(iri);
}

std::unique_ptr<ByteStream> IProvider::doOpenTransactionalStreamAtScratchLocation(
    const StorageIRI& iri, const ByteStreamOpenOptions& /*options*/, const StorageIRI& /*scratch*/) const {
    unsupported(iri);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListAll(const StorageIRI& iri) const {
    unsupported(iri);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListAllWildcards(const StorageIRI& iri,
                                                                    const std::u16string& pattern) const {
    return filtered(doListAll(iri), pattern);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListFiles(const StorageIRI& iri) const {
    unsupported(iri);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListFilesWildcards(const StorageIRI& iri,
                                                                      const std::u16string& pattern) const {
    return filtered(doListFiles(iri), pattern);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListFolders(const StorageIRI& iri) const {
    unsupported(iri);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListFoldersWildcards(const StorageIRI& iri,
                                                                        const std::u16string& pattern) const {
    return filtered(doListFolders(iri), pattern);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListAllNamesOnly(const StorageIRI& iri) const {
    return doListAll(iri);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListAllNamesOnlyWildcards(const StorageIRI& iri,
                                                                             const std::u16string& pattern) const {
    return filtered(doListAllNamesOnly(iri), pattern);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListFoldersNamesOnly(const StorageIRI& iri) const {
    return doListFolders(iri);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListFoldersNamesOnlyWildcards(const StorageIRI& iri,
                                                                                 const std::u16string& pattern) const {
    return filtered(doListFoldersNamesOnly(iri), pattern);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListFilesNamesOnly(const StorageIRI& iri) const {
    return doListFiles(iri);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListFilesNamesOnlyWildcards(const StorageIRI& iri,
                                                                               const std::u16string& pattern) const {
    return filtered(doListFilesNamesOnly(iri), pattern);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListAllRecursive(const StorageIRI& iri) const {
    unsupported(iri);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListAllRecursiveWildcards(const StorageIRI& iri,
                                                                             const std::u16string& pattern) const {
    return filtered(doListAllRecursive(iri), pattern);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListAllRecursiveNamesOnly(const StorageIRI& iri) const {
    return doListAllRecursive(iri);
}

std::unique_ptr<IFolderEntryIterator> IProvider::doListAllRecursiveNamesOnlyWildcards(
    const StorageIRI& iri, const std::u16string& pattern) const {
    return filtered(doListAllRecursiveNamesOnly(iri), pattern);
}

void IProvider::doCopyFile(const StorageIRI& source, const StorageIRI& /*destination*/,
                           const ReplacementPolicy& /*policy*/) const {
    unsupported(source);
}

void IProvider::doCopyFileAtomic(const StorageIRI& source, const StorageIRI& /*destination*/,
                                 const ReplacementPolicy& /*policy*/) const {
    unsupported(source);
}

void IProvider::doSetLastModified(const StorageIRI& iri, const boost::posix_time::ptime& /*time*/) const {
    unsupported(iri);
}

void IProvider::doSetWritable(const StorageIRI& iri, bool /*writable*/) const {
    unsupported(iri);
}

void IProvider::doPublishFolderEventsFor(const StorageIRI& iri, const EventCallback& /*callback*/) const {
    unsupported(iri);
}

void IProvider::doPublishFileEventsFor(const StorageIRI& iri, const EventCallback& /*callback*/) const {
    unsupported(iri);
}

void IProvider::doStopPublishingEventsFor(const StorageIRI& iri) const {
    unsupported(iri);
}

void IProvider::doStartChangePollingMechanism() const {
    unsupported(StorageIRI());
}

void IProvider::doStopChangePollingMechanism() const {
    unsupported(StorageIRI());
}

bool IProvider::doSupportsFeature(const Feature& /*feature*/) const {
    return false;
}

PathComparator IProvider::doGetPathComparator(const StorageIRI& iri) const {
    unsupported(iri);
}

StorageIRI IProvider::doGetCanonicalLocation(const StorageIRI& iri) const {
    unsupported(iri);
}

FilenameSensitivity IProvider::doGetFilenameSensitivity(const StorageIRI& iri) const {
    unsupported(iri);
}

void IProvider::doShutdown() {}

bool IProvider::doExists(const StorageIRI& iri) const {
    return doFileExists(iri) || doFolderExists(iri);
}

ResourceKind IProvider::doExistsExtended(const StorageIRI& iri) const {
    if (doFileExists(iri)) {
        return ResourceKind::File;
    }
    return doFolderExists(iri) ? ResourceKind::Folder : ResourceKind::None;
}

boost::property_tree::ptree IProvider::doGetExtendedAttributes(const StorageIRI& iri) const {
    unsupported(iri);
}

boost::property_tree::ptree IProvider::doGetProviderStorageInfo(const StorageIRI& iri) const {
    unsupported(iri);
}

void IProvider::doTruncateToSize(const StorageIRI& iri, std::uint64_t /*size*/) const {
    unsupported(iri);
}

std::uint64_t IProvider::doGetProviderCacheUsage() const {
    unsupported(StorageIRI());
}

}  // namespace foundation::storage::provider
