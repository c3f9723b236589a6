// SPDX-License-Identifier: Apache-2.0
#include "CloudProvider.hpp"

#include "FlatCloudEntryIterator.hpp"
#include "OpenFileManager.hpp"
#include "RecursiveCloudEntryIterator.hpp"
#include "Trace.hpp"
#include "getResolvedIRI.hpp"
#include "translateException.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <utility>

namespace storage::cloudprovider {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::Feature;
using foundation::storage::provider::FileAttributes;
using foundation::storage::provider::FolderAttributes;
using foundation::storage::provider::IFolderEntryIterator;
using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;

namespace {

std::string keyOf(const StorageIRI& iri) {
    return utils::iriToKey(getResolvedIRI(iri));
}

std::string folderPrefixOf(const StorageIRI& iri) {
    return utils::ensureTrailingSlash(keyOf(iri));
}

// The root is a folder; no file of that name can be asked for or made.
void failIfRoot(const StorageIRI& resolved) {
    if (!resolved.hasParent()) {
        throw ResourceNotFoundException();
    }
}

}  // namespace

std::shared_ptr<IProvider> buildCloudProvider(std::shared_ptr<CloudClient> client, FolderPolicy policy,
                                              bool checkFolderOnCopy) {
    return std::make_shared<CloudProvider>(std::move(client), policy, checkFolderOnCopy);
}

CloudProvider::CloudProvider(std::shared_ptr<CloudClient> client, FolderPolicy folderPolicy, bool checkFolderOnCopy)
    : m_client(std::move(client)), m_folderPolicy(folderPolicy), m_checkFolderOnCopy(checkFolderOnCopy) {}

CloudProvider::~CloudProvider() = default;

bool CloudProvider::doFileExists(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri);
    return translatingErrors(iri, [&] {
        const auto key = keyOf(iri);
        return !key.empty() && m_client->getObjectInfo(key).has_value();
    });
}

bool CloudProvider::doFolderExists(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri);
    return translatingErrors(iri, [&] { return isPrefixInUse(folderPrefixOf(iri)); });
}

FileAttributes CloudProvider::doGetFileAttributes(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri);
    try {
        const auto key = keyOf(iri);
        const auto info = key.empty() ? boost::none : m_client->getObjectInfo(key);
        if (!info) {
            throw ResourceNotFoundException();
        }
        return {info->Size, info->LastModified, true};
    } catch (...) {
        // Hosts ask for the attributes of files that are not there all the time: no record for that.
        translateException(iri);
    }
}

FolderAttributes CloudProvider::doGetFolderAttributes(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri);
    return translatingErrors(iri, [&]() -> FolderAttributes {
        const auto prefix = folderPrefixOf(iri);
        if (m_folderPolicy == FolderPolicy::MarkerObjects) {
            if (const auto marker = m_client->getObjectInfo(prefix)) {
                return {marker->LastModified, true};
            }
        }
        if (!isPrefixInUse(prefix)) {
            throw ResourceNotFoundException();
        }
        return {boost::posix_time::not_a_date_time, true};
    });
}

std::unique_ptr<ByteStream> CloudProvider::doOpenStream(const StorageIRI& iri,
                                                        const ByteStreamOpenOptions& options) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri, " options=", options);
    return translatingErrors(iri, [&] {
        const auto resolved = getResolvedIRI(iri);
        failIfRoot(resolved);
        return OpenFileManager::instance().openReadWrite(resolved, options, m_client);
    });
}

std::unique_ptr<ByteStream> CloudProvider::doOpenReadOnlyStream(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri);
    return translatingErrors(iri, [&] {
        const auto resolved = getResolvedIRI(iri);
        failIfRoot(resolved);
        return OpenFileManager::instance().openReadOnly(resolved, m_client);
    });
}

std::unique_ptr<IFolderEntryIterator> CloudProvider::doListAll(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri);
    return listFlat(iri, FlatCloudEntryIterator::Filter::All);
}

std::unique_ptr<IFolderEntryIterator> CloudProvider::doListFiles(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri);
    return listFlat(iri, FlatCloudEntryIterator::Filter::Files);
}

std::unique_ptr<IFolderEntryIterator> CloudProvider::doListFolders(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri);
    return listFlat(iri, FlatCloudEntryIterator::Filter::Folders);
}

std::unique_ptr<IFolderEntryIterator> CloudProvider::doListAllRecursive(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri);
    return translatingErrors(
        iri, [&] { return std::make_unique<RecursiveCloudEntryIterator>(getResolvedIRI(iri), m_client); });
}

bool CloudProvider::doSupportsFeature(const Feature& feature) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    return feature == Feature::ReadStreams || feature == Feature::WriteStreams;
}

std::unique_ptr<IFolderEntryIterator> CloudProvider::listFlat(const StorageIRI& iri,
                                                              FlatCloudEntryIterator::Filter filter) const {
    return translatingErrors(
        iri, [&] { return std::make_unique<FlatCloudEntryIterator>(getResolvedIRI(iri), filter, m_client); });
}

bool CloudProvider::isPrefixInUse(const std::string& prefix) const {
    std::string token;
    bool isEmpty = true;
    do {
        isEmpty = m_client->listObjects(prefix, token, ListOptions{"", 1}).empty();
    } while (isEmpty && !token.empty());
    return prefix.empty() || !isEmpty;
}

}  // namespace storage::cloudprovider
