// SPDX-License-Identifier: Apache-2.0
#include "provider/CloudProvider.hpp"

#include "buffers/DiskBackedBufferFactory.hpp"
#include "client/checkKeyLength.hpp"
#include "client/extendClient.hpp"
#include "listing/FlatCloudEntryIterator.hpp"
#include "listing/RecursiveCloudEntryIterator.hpp"
#include "listing/listingPages.hpp"
#include "openfile/OpenFileManager.hpp"
#include "provider/FileCopier.hpp"
#include "provider/getResolvedIRI.hpp"
#include "support/Trace.hpp"
#include "support/host.hpp"
#include "support/interrupt.hpp"
#include "support/translateException.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>

namespace storage::cloudprovider {

using host::ByteStream;
using host::ErrorCode;
using host::Exception;
using host::Feature;
using host::IFolderEntryIterator;
using host::StorageIRI;

namespace {

std::string keyOf(const StorageIRI& iri) {
    return utils::iriToKey(getResolvedIRI(iri));
}

std::string folderPrefixOf(const StorageIRI& iri) {
    return utils::ensureTrailingSlash(keyOf(iri));
}

Engine makeEngine(const ProviderOptions& options) {
    Engine engine{.options = options};
    if (options.transferThreads != 0) {
        engine.pool = std::make_shared<TransferPool>(options.transferThreads);
        engine.fetchBudget = std::make_shared<FetchBudget>(options.transferThreads);
    }
    if (options.partMemory != 0) {
        engine.memory = std::make_shared<PartMemory>(options.partMemory);
    }
    return engine;
}

// What a copy may be stored over. That there is no destination was looked at before, but it may come meanwhile.
ExpectedObject replacedUnder(bool replaces) {
    return replaces ? ExpectedObject::anything() : ExpectedObject::absent();
}

}  // namespace

std::shared_ptr<host::IProvider> buildCloudProvider(std::shared_ptr<CloudClient> client, FolderPolicy policy,
                                                    bool checkFolderOnCopy) {
    return buildCloudProvider(std::move(client), policy, checkFolderOnCopy, ProviderOptions());
}

std::shared_ptr<host::IProvider> buildCloudProvider(std::shared_ptr<CloudClient> client, FolderPolicy policy,
                                                    bool checkFolderOnCopy, const ProviderOptions& options) {
    return std::make_shared<CloudProvider>(std::move(client), policy, checkFolderOnCopy, options);
}

CloudProvider::CloudProvider(std::shared_ptr<CloudClient> client, FolderPolicy folderPolicy, bool checkFolderOnCopy,
                             const ProviderOptions& options)
    : m_client(extendClient(std::move(client))),
      m_folderPolicy(folderPolicy),
      m_checkFolderOnCopy(checkFolderOnCopy),
      m_engine(makeEngine(options)),
      m_folderOfParts(holdFolderOfParts()) {}

CloudProvider::~CloudProvider() = default;

const CloudProvider& CloudProvider::of(const host::IProvider& provider, const StorageIRI& iri) {
    const auto* const own = dynamic_cast<const CloudProvider*>(&provider);
    if (own == nullptr) {
        throw host::Exception(host::ErrorCode::Unsupported, iri);
    }
    return *own;
}

std::unique_ptr<ByteStream> CloudProvider::openSequentialWriter(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return translatingErrors(iri, [&] {
        const auto resolved = getResolvedIRI(iri);
        failIfRoot(resolved);
        return OpenFileManager::instance().openSequentially(resolved, m_client, ExpectedObject::anything(), m_engine);
    });
}

std::unique_ptr<ByteStream> CloudProvider::openSequentialReader(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return translatingErrors(iri, [&] {
        const auto resolved = getResolvedIRI(iri);
        failIfRoot(resolved);
        return OpenFileManager::instance().openToReadSequentially(resolved, m_client, m_engine);
    });
}

void CloudProvider::readInPieces(const StorageIRI& iri, const PieceSink& sink) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    const auto failureOfSink = translatingErrors(iri, [&] {
        const auto resolved = getResolvedIRI(iri);
        failIfRoot(resolved);
        return OpenFileManager::instance().readInPieces(resolved, m_client, m_engine, sink);
    });
    if (failureOfSink) {
        std::rethrow_exception(failureOfSink);
    }
}

void CloudProvider::doCreateFile(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    translatingErrors(iri, [&] {
        const auto key = keyOf(iri);
        checkKeyLength(*m_client, key);
        if (key.empty() || m_client->getObjectInfo(key)) {
            throw ResourceAlreadyExistsException();
        }
        createEmptyObject(key);
    });
}

void CloudProvider::doCreateFolder(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    translatingErrors(iri, [&] {
        if (m_folderPolicy != FolderPolicy::MarkerObjects) {
            throw UnsupportedOperationException();
        }
        const auto resolved = getResolvedIRI(iri);
        if (!resolved.hasParent()) {
            throw ResourceAlreadyExistsException();
        }
        if (!doFolderExists(resolved.getParent())) {
            throw ResourceNotFoundException();
        }
        const auto key = utils::iriToKey(resolved);
        const auto marker = utils::ensureTrailingSlash(key);
        if (m_client->getObjectInfo(key) || m_client->getObjectInfo(marker)) {
            throw ResourceAlreadyExistsException();
        }
        createEmptyObject(marker);
    });
}

bool CloudProvider::doFileExists(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return translatingErrors(iri, [&] {
        const auto key = keyOf(iri);
        return !key.empty() && m_client->getObjectInfo(key).has_value();
    });
}

bool CloudProvider::doFolderExists(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return translatingErrors(iri, [&] { return isPrefixInUse(folderPrefixOf(iri)); });
}

void CloudProvider::doRemoveFile(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    translatingErrors(iri, [&] {
        const auto resolved = getResolvedIRI(iri);
        failIfRoot(resolved);
        failIfOpen(resolved);
        m_client->deleteObject(utils::iriToKey(resolved));
    });
}

void CloudProvider::doMoveFile(const StorageIRI& source, const StorageIRI& destination,
                               const ReplacementPolicy& policy) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" old_iri=", source);
    const auto from = resolvedForHost(source);
    const auto to = resolvedForHost(destination);
    auto& openFiles = OpenFileManager::instance();
    if (openFiles.isOpen(from, m_client)) {
        throw Exception(ErrorCode::InUse, from);
    }
    if (policy != ReplacementPolicy::Fail && policy != ReplacementPolicy::Replace) {
        throw Exception(ErrorCode::Unsupported, from);
    }
    if ((policy == ReplacementPolicy::Fail && doFileExists(to)) || doFolderExists(to)) {
        throw Exception(ErrorCode::AlreadyExists, to);
    }
    if (isSameFile(from, to)) {
        return;
    }
    FileCopier(*this, m_client, m_engine).move(from, to, replacedUnder(policy == ReplacementPolicy::Replace));
}

void CloudProvider::doRemoveFolder(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    translatingErrors(iri, [&] {
        const auto items = listAllObjects(iri, {utils::separator()});
        if (items.empty()) {
            throw ResourceNotFoundException();
        }
        const bool isOnlyMarker = items.size() == 1 && items.front().Key == folderPrefixOf(iri);
        if (m_folderPolicy != FolderPolicy::MarkerObjects || !isOnlyMarker) {
            throw FolderNotEmptyException();
        }
        m_client->deleteObject(items.front().Key);
    });
}

void CloudProvider::doRemoveFolderRecursively(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    translatingErrors(iri, [&] {
        const auto resolved = getResolvedIRI(iri);
        const auto items = listAllObjects(iri, {});
        if (items.empty()) {
            throw ResourceNotFoundException();
        }
        failIfNotBelow(folderPrefixOf(iri), items);
        const auto batch = std::max<std::size_t>(m_client->limits().DeletedAtOnce, 1);
        for (std::size_t first = 0; first < items.size(); first += batch) {
            throwIfInterrupted();
            failIfOpen(resolved);
            removeObjects(items, first, std::min(batch, items.size() - first));
        }
    });
}

void CloudProvider::doMoveFolder(const StorageIRI& source, const StorageIRI& /*destination*/,
                                 const ReplacementPolicy& /*policy*/) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" old_iri=", source);
    throw Exception(ErrorCode::Unsupported, source);
}

host::FileAttributes CloudProvider::doGetFileAttributes(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
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

host::FolderAttributes CloudProvider::doGetFolderAttributes(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return translatingErrors(iri, [&]() -> host::FolderAttributes {
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
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri, " options=", options);
    return translatingErrors(iri, [&] {
        const auto resolved = getResolvedIRI(iri);
        failIfRoot(resolved);
        return OpenFileManager::instance().openReadWrite(resolved, options, m_client, m_engine);
    });
}

std::unique_ptr<ByteStream> CloudProvider::doOpenReadOnlyStream(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return translatingErrors(iri, [&] {
        const auto resolved = getResolvedIRI(iri);
        failIfRoot(resolved);
        return OpenFileManager::instance().openReadOnly(resolved, m_client, m_engine);
    });
}

std::unique_ptr<IFolderEntryIterator> CloudProvider::doListAll(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return listFlat(iri, FlatCloudEntryIterator::Filter::All);
}

std::unique_ptr<IFolderEntryIterator> CloudProvider::doListFiles(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return listFlat(iri, FlatCloudEntryIterator::Filter::Files);
}

std::unique_ptr<IFolderEntryIterator> CloudProvider::doListFolders(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return listFlat(iri, FlatCloudEntryIterator::Filter::Folders);
}

std::unique_ptr<IFolderEntryIterator> CloudProvider::doListAllRecursive(const StorageIRI& iri) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return translatingErrors(
        iri, [&] { return std::make_unique<RecursiveCloudEntryIterator>(getResolvedIRI(iri), m_client); });
}

// A copy that fails leaves the destination as it was.
void CloudProvider::doCopyFile(const StorageIRI& source, const StorageIRI& destination,
                               const ReplacementPolicy& policy) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", source, " new_iri=", destination);
    translatingErrors(source, [&] {
        constexpr std::uint32_t kIgnoredPolicyBit = 4;
        const bool replaces = (static_cast<std::uint32_t>(policy) & ~kIgnoredPolicyBit) != 0;
        if ((!replaces && doFileExists(destination)) || (m_checkFolderOnCopy && doFolderExists(destination))) {
            throw Exception(ErrorCode::AlreadyExists, destination);
        }
        if (isSameFile(source, destination)) {
            return;
        }
        FileCopier(*this, m_client, m_engine).copy(source, destination, replacedUnder(replaces));
    });
}

void CloudProvider::doSetLastModified(const StorageIRI& iri, const boost::posix_time::ptime& /*time*/) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    throw Exception(ErrorCode::Unsupported, iri);
}

void CloudProvider::doSetWritable(const StorageIRI& iri, bool /*writable*/) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    throw Exception(ErrorCode::Unsupported, iri);
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
        isEmpty = fetchPage(*m_client, prefix, token, ListOptions{"", 1}).empty();
    } while (isEmpty && !token.empty() && !prefix.empty());
    return prefix.empty() || !isEmpty;
}

std::vector<ObjectInfo> CloudProvider::listAllObjects(const StorageIRI& iri, const std::string& delimiter) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    const auto prefix = folderPrefixOf(iri);
    std::vector<ObjectInfo> items;
    std::string token;
    do {
        auto page = fetchPage(*m_client, prefix, token, ListOptions{delimiter, -1});
        items.insert(items.end(), std::make_move_iterator(page.begin()), std::make_move_iterator(page.end()));
    } while (!token.empty());
    throwIfInterrupted();  // after the last page as well: what follows is a removal
    return items;
}

void CloudProvider::removeObjects(const std::vector<ObjectInfo>& items, std::size_t first, std::size_t count) const {
    if (count == 1) {
        m_client->deleteObject(items[first].Key);
        return;
    }
    std::vector<std::string> keys(count);
    std::transform(items.begin() + static_cast<std::ptrdiff_t>(first),
                   items.begin() + static_cast<std::ptrdiff_t>(first + count), keys.begin(),
                   [](const ObjectInfo& item) { return item.Key; });
    m_client->deleteObjects(keys);
}

// Somebody else may have made it since it was looked for.
void CloudProvider::createEmptyObject(const std::string& key) const {
    checkKeyLength(*m_client, key);
    std::stringstream nothing;
    try {
        m_client->putObjectOver(key, nothing, 0, ExpectedObject::absent());
    } catch (const ResourceInUseException&) {
        if (mayTellVersions(*m_client) && m_client->getObjectInfo(key)) {
            throw ResourceAlreadyExistsException();
        }
        throw;
    }
}

void CloudProvider::failIfOpen(const StorageIRI& resolved) const {
    if (OpenFileManager::instance().isOpen(resolved, m_client)) {
        throw ResourceInUseException();
    }
}

bool CloudProvider::isSameFile(const StorageIRI& source, const StorageIRI& destination) const {
    if (utils::iriToKey(resolvedForHost(source)) != utils::iriToKey(resolvedForHost(destination))) {
        return false;
    }
    if (!doFileExists(source)) {
        throw Exception(ErrorCode::NotFound, source);
    }
    return true;
}

}  // namespace storage::cloudprovider
