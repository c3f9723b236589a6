// SPDX-License-Identifier: Apache-2.0
#include "provider/FileCopier.hpp"

#include "client/checkKeyLength.hpp"
#include "client/extendClient.hpp"
#include "openfile/OpenFileManager.hpp"
#include "provider/getResolvedIRI.hpp"
#include "support/ScopeGuard.hpp"
#include "support/host.hpp"
#include "support/interrupt.hpp"
#include "support/translateException.hpp"

#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/InterruptScope.hpp>
#include <foundation/services/InterruptState.hpp>
#include <foundation/services/Text.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <utility>

namespace storage::cloudprovider {

using host::ErrorCode;
using host::Exception;
using host::StorageIRI;

namespace {

// Run a step on a file's stream; its failure becomes the host's, with the file's identifier.
template <typename Step>
void namingFile(const StorageIRI& iri, Step step) {
    try {
        step();
    } catch (const host::ByteStreamFailure& failure) {
        throw Exception(failure.getErrorCode(), iri, failure.getContext());
    }
}

// Copy every byte and store the destination. A failure names the file that it is about.
void finish(FileTransfer& transfer, const StorageIRI& source, const StorageIRI& destination) {
    try {
        transfer.copyAllBytes();
    } catch (const host::ByteStreamReadFailure& failure) {
        throw Exception(failure.getErrorCode(), source, failure.getContext());
    } catch (const host::ByteStreamWriteFailure& failure) {
        throw Exception(failure.getErrorCode(), destination, failure.getContext());
    }
    namingFile(source, [&] { transfer.closeSource(); });
    namingFile(destination, [&] { transfer.closeBoth(); });
}

// Has the calling thread meet no interrupt as long as it lives.
class WithoutInterrupts {
public:
    WithoutInterrupts() { foundation::setMainExecutionContext(false); }
    WithoutInterrupts(const WithoutInterrupts&) = delete;
    WithoutInterrupts& operator=(const WithoutInterrupts&) = delete;
    ~WithoutInterrupts() { foundation::setMainExecutionContext(m_wasMain); }

private:
    const bool m_wasMain = foundation::isMainExecutionContext();
    const foundation::InterruptScope m_scope{nullptr};
};

}  // namespace

FileCopier::FileCopier(const host::IProvider& files, std::shared_ptr<ExtendedCloudClient> client, const Engine& engine)
    : m_files(files), m_client(std::move(client)), m_engine(engine) {}

void FileCopier::copy(const StorageIRI& source, const StorageIRI& destination, const ExpectedObject& replaced) const {
    if (!copyInsideStore(source, destination, replaced)) {
        auto transfer = openTransfer(source, destination, replaced);
        finish(transfer, source, destination);
    }
}

// Unless the options say otherwise, the source is removed before the destination is closed, which is what stores it: a
// failure of that comes when the source has gone.
void FileCopier::move(const StorageIRI& source, const StorageIRI& destination, const ExpectedObject& replaced) const {
    if (m_engine.options.moveOrder == MoveOrder::StoreDestinationFirst) {
        removeMoved(source, copyVersion(source, destination, replaced));
        return;
    }
    auto transfer = openTransfer(source, destination, replaced);
    ScopeGuard guard([&transfer] { transfer.closeBoth(); });
    try {
        transfer.copyAllBytes();
        transfer.closeSource();  // else the removal would find the source in use
    } catch (const foundation::OperationInterrupted&) {
        translateException(source);
    }
    m_files.removeFile(source);
    const WithoutInterrupts untilStored;  // there is no way back
    guard.run();
}

// The source first: a missing one leaves the destination as it was.
FileTransfer FileCopier::openTransfer(const StorageIRI& source, const StorageIRI& destination,
                                      const ExpectedObject& replaced) const {
    failIfDestinationOpen(destination);
    return openTransfer(m_files.openReadOnlyStream(source), destination, replaced);
}

FileTransfer FileCopier::openTransfer(std::unique_ptr<host::ByteStream> source, const StorageIRI& destination,
                                      const ExpectedObject& replaced) const {
    auto destinationStream = translatingErrors(destination, [&] {
        const auto resolved = getResolvedIRI(destination);
        failIfRoot(resolved);
        auto& openFiles = OpenFileManager::instance();
        return m_engine.pool ? openFiles.openSequentially(resolved, m_client, replaced, m_engine)
                             : openFiles.openReplacement(resolved, m_client, replaced, m_engine);
    });
    return {std::move(source), FileTransfer::Destination(destinationStream.release())};
}

// A destination that is open elsewhere would share its content with the stream opened here instead of being replaced.
void FileCopier::failIfDestinationOpen(const StorageIRI& destination) const {
    if (OpenFileManager::instance().isOpen(resolvedForHost(destination), m_client)) {
        throw Exception(ErrorCode::InUse, destination);
    }
}

// An open source is not what is stored.
std::optional<std::string> FileCopier::copyInsideStore(const StorageIRI& source, const StorageIRI& destination,
                                                       const ExpectedObject& replaced) const {
    auto& openFiles = OpenFileManager::instance();
    const auto from = resolvedForHost(source);
    const auto to = resolvedForHost(destination);
    const bool mayCopy = m_engine.options.copyInStore && mayTellVersions(*m_client);  // a plain client does not copy
    if (!mayCopy || openFiles.isOpen(from, m_client)) {
        return std::nullopt;
    }
    const auto held =
        translatingErrors(destination, [&] { return OpenFileManager::ExclusiveHold(openFiles, to, m_client); });
    const auto key = utils::iriToKey(from);
    auto version = translatingErrors(source, [&] {
        failIfRoot(from);
        auto description = m_client->describeObject(key);
        if (!description) {
            throw ResourceNotFoundException();
        }
        throwIfInterrupted();
        return std::move(description->Version);
    });
    const bool isCopied = translatingErrors(destination, [&] {
        failIfRoot(to);
        checkKeyLength(*m_client, utils::iriToKey(to));
        m_client->checkObjectName(foundation::toUtf8(to.getName()));
        try {
            return m_client->copyObject(key, version, utils::iriToKey(to), replaced);
        } catch (const ResourceNotFoundException&) {
            translateException(source);
        } catch (const ResourceInUseException&) {
            translateException(isReplaced(key, version) ? source : destination);
        }
    });
    return isCopied ? std::optional(std::move(version)) : std::nullopt;
}

bool FileCopier::isReplaced(const std::string& key, const std::string& version) const {
    try {
        const auto description = m_client->describeObject(key);
        return !description || description->Version != version;
    } catch (...) {
        traceCaughtException();
        return false;
    }
}

std::string FileCopier::copyVersion(const StorageIRI& source, const StorageIRI& destination,
                                    const ExpectedObject& replaced) const {
    return translatingErrors(source, [&] {
        if (auto version = copyInsideStore(source, destination, replaced)) {
            return *std::move(version);
        }
        failIfDestinationOpen(destination);
        const auto resolved = getResolvedIRI(source);
        failIfRoot(resolved);
        auto [stream, version] = OpenFileManager::instance().openVersion(resolved, m_client, m_engine);
        auto transfer = openTransfer(std::move(stream), destination, replaced);
        finish(transfer, source, destination);
        return std::move(version);
    });
}

// Nobody opens the source meanwhile: what somebody edits here is not removed under him.
void FileCopier::removeMoved(const StorageIRI& resolved, const std::string& version) const {
    translatingErrors(resolved, [&] {
        try {
            const OpenFileManager::ExclusiveHold held(OpenFileManager::instance(), resolved, m_client);
            m_client->removeObject(utils::iriToKey(resolved), version);
        } catch (const CloudException& failure) {
            throw Exception(
                failure.getErrorCode(), resolved,
                host::ExceptionContext(std::string("the destination is stored, but removing the source failed: ") +
                                       failure.what()));
        }
    });
}

}  // namespace storage::cloudprovider
