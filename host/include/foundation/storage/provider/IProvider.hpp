// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/Attributes.hpp>
#include <foundation/storage/provider/ByteStream.hpp>
#include <foundation/storage/provider/Exception.hpp>
#include <foundation/storage/provider/FolderEntry.hpp>
#include <foundation/storage/provider/ReplacementPolicy.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/property_tree/ptree_fwd.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace foundation::storage::provider {

/// What a host may ask a provider for with supportsFeature.
enum class Feature : std::uint32_t {
    ReadStreams = 0,
    WriteStreams = 1,
    TransactionalStreams = 2,
    ChangeEvents = 3,
    ModificationTimes = 4
};

/// What an identifier stands for.
enum class ResourceKind : std::uint32_t { None = 0, File = 1, Folder = 2 };

/// Whether names that differ only in case are different.
enum class FilenameSensitivity : std::uint32_t { CaseSensitive = 0, CaseInsensitive = 1 };

/// Receives the payload of a change event.
using EventCallback = std::function<void(const boost::property_tree::ptree&)>;

/// Whether the first path is ordered before the second.
using PathComparator = std::function<bool(const StorageIRI&, const StorageIRI&)>;

/// A file system, as the host sees every storage back end.
///
/// The public operations forward to private virtual ones, which an implementation overrides. Where an
/// override is missing, the operation is made from others if it can be (recursive creation, listings of names
/// and with wildcards, exists), else it throws Exception with the code Unsupported.
///
/// Errors    Exception with an ErrorCode and the identifier, unless an operation says otherwise. An operation that was
///           interrupted throws it with the code Unknown; see services/InterruptState.hpp for whom that concerns.
/// Patterns  UTF-16; "*" stands for any run of characters, the empty one too, "?" for exactly one, anything else for
///           itself. A whole name must match, case counts.
/// Listings  come lazily in the order of the back end; see IFolderEntryIterator.
/// Threads   every const operation may be called by several threads at once; shutdown only when no other runs.
class FOUNDATION_HOST_EXPORT IProvider {
public:
    IProvider() = default;
    IProvider(const IProvider&) = delete;
    IProvider& operator=(const IProvider&) = delete;
    virtual ~IProvider();

    /// Create an empty file. AlreadyExists when there is one.
    void createFile(const StorageIRI& iri) const { doCreateFile(iri); }

    /// Create a folder in an existing folder. AlreadyExists when it or a file of its name is there.
    void createFolder(const StorageIRI& iri) const { doCreateFolder(iri); }

    /// Create a folder and those of its ancestors that are missing; does nothing when it is there. Several threads, or
    /// processes, may create the same path at once. AlreadyExists when a file is in the way.
    void createFolderRecursive(const StorageIRI& iri) const { doCreateFolderRecursive(iri); }

    /// Whether there is a file; absence is an answer, never an error.
    bool fileExists(const StorageIRI& iri) const { return doFileExists(iri); }

    /// Whether there is a folder; absence is an answer, never an error.
    bool folderExists(const StorageIRI& iri) const { return doFolderExists(iri); }

    /// Remove a file. InUse while it is open.
    void removeFile(const StorageIRI& iri) const { doRemoveFile(iri); }

    /// Move a file, within or across folders. The policy tells what happens when destination is a file.
    ///
    /// storage::cloudprovider copies the bytes, removes the source, and only then closes the destination, which is what
    /// stores it. When that fails, the source is gone and the bytes are lost; destination is what it was, unless only
    /// the store's answer got lost. What fails before leaves the source, and destination with what had been copied.
    /// A provider built to store the destination first (MoveOrder::StoreDestinationFirst) removes the source when the
    /// destination is stored: what fails leaves one of them whole, or both. InUse then, too, with both left, when
    /// somebody replaced or opened the source meanwhile.
    ///
    /// Errors   Exception; from storage::cloudprovider also, without an identifier, ByteStreamReadFailure and
    ///          ByteStreamWriteFailure while the bytes are copied, and ByteStreamCloseFailure, as a rule because
    ///          destination could not be stored. Interrupted: Exception with the code Unknown, both files as they were.
    void moveFile(const StorageIRI& source, const StorageIRI& destination, const ReplacementPolicy& policy) const {
        doMoveFile(source, destination, policy);
    }

    /// Remove an empty folder. FolderNotEmpty when it holds anything.
    void removeFolder(const StorageIRI& iri) const { doRemoveFolder(iri); }

    /// Remove a folder and all it holds. What was removed before a failure stays removed.
    void removeFolderRecursively(const StorageIRI& iri) const { doRemoveFolderRecursively(iri); }

    /// Move a folder with all it holds.
    void moveFolder(const StorageIRI& source, const StorageIRI& destination, const ReplacementPolicy& policy) const {
        doMoveFolder(source, destination, policy);
    }

    /// Size and time of a file. NotFound when there is none.
    FileAttributes getFileAttributes(const StorageIRI& iri) const { return doGetFileAttributes(iri); }

    /// Time of a folder. NotFound when there is none.
    FolderAttributes getFolderAttributes(const StorageIRI& iri) const { return doGetFolderAttributes(iri); }

    /// Open a file for writing, and for reading if the options say so.
    ///
    /// openStream(iri, {}) discards what the file held, even if nothing is written. To keep it:
    /// openStream(iri, {.existingContent = ByteStreamOpenOptions::ExistingContent::Preserve}), which writes at its end;
    /// with .writeMode = ByteStreamOpenOptions::WriteMode::Positioned, too, at the position, which begins at 0.
    ///
    /// storage::cloudprovider shares the content among all streams of a file and stores it when the last one closes.
    /// The options' existingContent and presence count for the stream that opens the file: another one, opened while
    /// the file is open, neither discards anything nor asks whether the file is stored.
    std::unique_ptr<ByteStream> openStream(const StorageIRI& iri, const ByteStreamOpenOptions& options) const {
        return doOpenStream(iri, options);
    }

    /// Open an existing file for reading. NotFound when there is none.
    std::unique_ptr<ByteStream> openReadOnlyStream(const StorageIRI& iri) const { return doOpenReadOnlyStream(iri); }

    /// Open a file for writing such that nobody sees the changes before the stream closes.
    std::unique_ptr<ByteStream> openTransactionalStream(const StorageIRI& iri,
                                                        const ByteStreamOpenOptions& options) const {
        return doOpenTransactionalStream(iri, options);
    }

    /// The same, with the unfinished bytes kept at scratch.
    std::unique_ptr<ByteStream> openTransactionalStreamAtScratchLocation(const StorageIRI& iri,
                                                                         const ByteStreamOpenOptions& options,
                                                                         const StorageIRI& scratch) const {
        return doOpenTransactionalStreamAtScratchLocation(iri, options, scratch);
    }

    /// List the files and folders directly inside a folder. NotFound when there is no such folder.
    std::unique_ptr<IFolderEntryIterator> listAll(const StorageIRI& iri) const { return doListAll(iri); }

    /// The same, for names that match pattern.
    std::unique_ptr<IFolderEntryIterator> listAllWildcards(const StorageIRI& iri, const std::u16string& pattern) const {
        return doListAllWildcards(iri, pattern);
    }

    /// List the files directly inside a folder.
    std::unique_ptr<IFolderEntryIterator> listFiles(const StorageIRI& iri) const { return doListFiles(iri); }

    /// The same, for names that match pattern.
    std::unique_ptr<IFolderEntryIterator> listFilesWildcards(const StorageIRI& iri,
                                                             const std::u16string& pattern) const {
        return doListFilesWildcards(iri, pattern);
    }

    /// List the folders directly inside a folder.
    std::unique_ptr<IFolderEntryIterator> listFolders(const StorageIRI& iri) const { return doListFolders(iri); }

    /// The same, for names that match pattern.
    std::unique_ptr<IFolderEntryIterator> listFoldersWildcards(const StorageIRI& iri,
                                                               const std::u16string& pattern) const {
        return doListFoldersWildcards(iri, pattern);
    }

    /// List files and folders for their names and kinds; a provider may leave the attributes unknown.
    std::unique_ptr<IFolderEntryIterator> listAllNamesOnly(const StorageIRI& iri) const {
        return doListAllNamesOnly(iri);
    }

    /// The same, for names that match pattern.
    std::unique_ptr<IFolderEntryIterator> listAllNamesOnlyWildcards(const StorageIRI& iri,
                                                                    const std::u16string& pattern) const {
        return doListAllNamesOnlyWildcards(iri, pattern);
    }

    /// List folders for their names; a provider may leave the attributes unknown.
    std::unique_ptr<IFolderEntryIterator> listFoldersNamesOnly(const StorageIRI& iri) const {
        return doListFoldersNamesOnly(iri);
    }

    /// The same, for names that match pattern.
    std::unique_ptr<IFolderEntryIterator> listFoldersNamesOnlyWildcards(const StorageIRI& iri,
                                                                        const std::u16string& pattern) const {
        return doListFoldersNamesOnlyWildcards(iri, pattern);
    }

    /// List files for their names; a provider may leave the attributes unknown.
    std::unique_ptr<IFolderEntryIterator> listFilesNamesOnly(const StorageIRI& iri) const {
        return doListFilesNamesOnly(iri);
    }

    /// The same, for names that match pattern.
    std::unique_ptr<IFolderEntryIterator> listFilesNamesOnlyWildcards(const StorageIRI& iri,
                                                                      const std::u16string& pattern) const {
        return doListFilesNamesOnlyWildcards(iri, pattern);
    }

    /// List every file and folder at any depth below a folder; names are paths relative to it.
    std::unique_ptr<IFolderEntryIterator> listAllRecursive(const StorageIRI& iri) const {
        return doListAllRecursive(iri);
    }

    /// The same, for entries whose last component matches pattern.
    std::unique_ptr<IFolderEntryIterator> listAllRecursiveWildcards(const StorageIRI& iri,
                                                                    const std::u16string& pattern) const {
        return doListAllRecursiveWildcards(iri, pattern);
    }

    /// The same as listAllRecursive, for names and kinds; a provider may leave the attributes unknown.
    std::unique_ptr<IFolderEntryIterator> listAllRecursiveNamesOnly(const StorageIRI& iri) const {
        return doListAllRecursiveNamesOnly(iri);
    }

    /// The same, for entries whose last component matches pattern.
    std::unique_ptr<IFolderEntryIterator> listAllRecursiveNamesOnlyWildcards(const StorageIRI& iri,
                                                                             const std::u16string& pattern) const {
        return doListAllRecursiveNamesOnlyWildcards(iri, pattern);
    }

    /// Copy a file's bytes. The policy tells what happens when destination is a file.
    void copyFile(const StorageIRI& source, const StorageIRI& destination, const ReplacementPolicy& policy) const {
        doCopyFile(source, destination, policy);
    }

    /// Copy a file such that nobody ever sees a part of it at destination.
    void copyFileAtomic(const StorageIRI& source, const StorageIRI& destination,
                        const ReplacementPolicy& policy) const {
        doCopyFileAtomic(source, destination, policy);
    }

    /// Set a file's or folder's time, in UTC.
    void setLastModified(const StorageIRI& iri, const boost::posix_time::ptime& time) const {
        doSetLastModified(iri, time);
    }

    /// Make a file or folder writable or not.
    void setWritable(const StorageIRI& iri, bool writable) const { doSetWritable(iri, writable); }

    /// Report changes of a folder's contents until they are stopped.
    void publishFolderEventsFor(const StorageIRI& iri, const EventCallback& callback) const {
        doPublishFolderEventsFor(iri, callback);
    }

    /// Report changes of a file until they are stopped.
    void publishFileEventsFor(const StorageIRI& iri, const EventCallback& callback) const {
        doPublishFileEventsFor(iri, callback);
    }

    /// Stop reporting changes of a file or folder.
    void stopPublishingEventsFor(const StorageIRI& iri) const { doStopPublishingEventsFor(iri); }

    /// Start looking for changes in the background.
    void startChangePollingMechanism() const { doStartChangePollingMechanism(); }

    /// Stop looking for changes in the background.
    void stopChangePollingMechanism() const { doStopChangePollingMechanism(); }

    /// Whether the provider can do what the feature says.
    bool supportsFeature(const Feature& feature) const { return doSupportsFeature(feature); }

    /// Answer the order of paths below iri.
    PathComparator getPathComparator(const StorageIRI& iri) const { return doGetPathComparator(iri); }

    /// Answer the one identifier that stands for all spellings of iri.
    StorageIRI getCanonicalLocation(const StorageIRI& iri) const { return doGetCanonicalLocation(iri); }

    /// Whether names below iri that differ only in case are different.
    FilenameSensitivity getFilenameSensitivity(const StorageIRI& iri) const { return doGetFilenameSensitivity(iri); }

    /// Let go of what must not outlive the host's main loop. Does nothing by default.
    void shutdown() { doShutdown(); }

    /// Whether there is a file or a folder.
    bool exists(const StorageIRI& iri) const { return doExists(iri); }

    /// What there is: a file is reported before a folder of the same name.
    ResourceKind existsExtended(const StorageIRI& iri) const { return doExistsExtended(iri); }

    /// Answer what else the provider knows about a file or folder. Who calls this, or overrides it, includes
    /// boost/property_tree/ptree.hpp, here and below.
    boost::property_tree::ptree getExtendedAttributes(const StorageIRI& iri) const;

    /// Answer what the provider knows about the storage that holds iri.
    boost::property_tree::ptree getProviderStorageInfo(const StorageIRI& iri) const;

    /// Cut a file to size bytes.
    void truncateToSize(const StorageIRI& iri, std::uint64_t size) const { doTruncateToSize(iri, size); }

    /// Answer the bytes that the provider's caches hold on local disks.
    std::uint64_t getProviderCacheUsage() const { return doGetProviderCacheUsage(); }

private:
    virtual void doCreateFile(const StorageIRI& iri) const;
    virtual void doCreateFolder(const StorageIRI& iri) const;
    virtual void doCreateFolderRecursive(const StorageIRI& iri) const;
    virtual bool doFileExists(const StorageIRI& iri) const;
    virtual bool doFolderExists(const StorageIRI& iri) const;
    virtual void doRemoveFile(const StorageIRI& iri) const;
    virtual void doMoveFile(const StorageIRI& source, const StorageIRI& destination,
                            const ReplacementPolicy& policy) const;
    virtual void doRemoveFolder(const StorageIRI& iri) const;
    virtual void doRemoveFolderRecursively(const StorageIRI& iri) const;
    virtual void doMoveFolder(const StorageIRI& source, const StorageIRI& destination,
                              const ReplacementPolicy& policy) const;
    virtual FileAttributes doGetFileAttributes(const StorageIRI& iri) const;
    virtual FolderAttributes doGetFolderAttributes(const StorageIRI& iri) const;
    virtual std::unique_ptr<ByteStream> doOpenStream(const StorageIRI& iri, const ByteStreamOpenOptions& options) const;
    virtual std::unique_ptr<ByteStream> doOpenReadOnlyStream(const StorageIRI& iri) const;
    virtual std::unique_ptr<ByteStream> doOpenTransactionalStream(const StorageIRI& iri,
                                                                  const ByteStreamOpenOptions& options) const;
    virtual std::unique_ptr<ByteStream> doOpenTransactionalStreamAtScratchLocation(const StorageIRI& iri,
                                                                                   const ByteStreamOpenOptions& options,
                                                                                   const StorageIRI& scratch) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListAll(const StorageIRI& iri) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListAllWildcards(const StorageIRI& iri,
                                                                     const std::u16string& pattern) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListFiles(const StorageIRI& iri) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListFilesWildcards(const StorageIRI& iri,
                                                                       const std::u16string& pattern) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListFolders(const StorageIRI& iri) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListFoldersWildcards(const StorageIRI& iri,
                                                                         const std::u16string& pattern) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListAllNamesOnly(const StorageIRI& iri) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListAllNamesOnlyWildcards(const StorageIRI& iri,
                                                                              const std::u16string& pattern) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListFoldersNamesOnly(const StorageIRI& iri) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListFoldersNamesOnlyWildcards(const StorageIRI& iri,
                                                                                  const std::u16string& pattern) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListFilesNamesOnly(const StorageIRI& iri) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListFilesNamesOnlyWildcards(const StorageIRI& iri,
                                                                                const std::u16string& pattern) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListAllRecursive(const StorageIRI& iri) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListAllRecursiveWildcards(const StorageIRI& iri,
                                                                              const std::u16string& pattern) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListAllRecursiveNamesOnly(const StorageIRI& iri) const;
    virtual std::unique_ptr<IFolderEntryIterator> doListAllRecursiveNamesOnlyWildcards(
        const StorageIRI& iri, const std::u16string& pattern) const;
    virtual void doCopyFile(const StorageIRI& source, const StorageIRI& destination,
                            const ReplacementPolicy& policy) const;
    virtual void doCopyFileAtomic(const StorageIRI& source, const StorageIRI& destination,
                                  const ReplacementPolicy& policy) const;
    virtual void doSetLastModified(const StorageIRI& iri, const boost::posix_time::ptime& time) const;
    virtual void doSetWritable(const StorageIRI& iri, bool writable) const;
    virtual void doPublishFolderEventsFor(const StorageIRI& iri, const EventCallback& callback) const;
    virtual void doPublishFileEventsFor(const StorageIRI& iri, const EventCallback& callback) const;
    virtual void doStopPublishingEventsFor(const StorageIRI& iri) const;
    virtual void doStartChangePollingMechanism() const;
    virtual void doStopChangePollingMechanism() const;
    virtual bool doSupportsFeature(const Feature& feature) const;
    virtual PathComparator doGetPathComparator(const StorageIRI& iri) const;
    virtual StorageIRI doGetCanonicalLocation(const StorageIRI& iri) const;
    virtual FilenameSensitivity doGetFilenameSensitivity(const StorageIRI& iri) const;
    virtual void doShutdown();
    virtual bool doExists(const StorageIRI& iri) const;
    virtual ResourceKind doExistsExtended(const StorageIRI& iri) const;
    virtual boost::property_tree::ptree doGetExtendedAttributes(const StorageIRI& iri) const;
    virtual boost::property_tree::ptree doGetProviderStorageInfo(const StorageIRI& iri) const;
    virtual void doTruncateToSize(const StorageIRI& iri, std::uint64_t size) const;
    virtual std::uint64_t doGetProviderCacheUsage() const;
};

}  // namespace foundation::storage::provider
