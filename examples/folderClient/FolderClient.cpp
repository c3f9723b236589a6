// SPDX-License-Identifier: Apache-2.0
#include "FolderClient.hpp"

#include "File.hpp"
#include "names.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <system_error>
#include <utility>

namespace example {

namespace fs = std::filesystem;
using namespace storage::cloudprovider;
using foundation::storage::provider::ExceptionContext;

namespace {

constexpr std::size_t kMostOfPage = 1000;
constexpr std::uint64_t kPartSize = std::uint64_t{8} * 1024 * 1024;
constexpr std::chrono::hours kAbandonedAfter(24);
constexpr int kMostTries = 1000;
constexpr const char* kUploadStart = "upload.";

// --- failures -------------------------------------------------------------------------------------------------------

// The one place where the file system's errors become those that callers know.
[[noreturn]] void throwCloudException(const std::string& step, const std::string& key, const std::system_error& cause) {
    const ExceptionContext context("cannot " + step + " \"" + key + "\": " + cause.what());
    switch (cause.code().value()) {
        case ENOENT:
        case ENOTDIR:
        case ENAMETOOLONG:  // what is written has been looked at before
            throw ResourceNotFoundException(context);
        case EACCES:
        case EPERM:
        case EROFS:
            throw PermissionDeniedException(context);
        default:
            throw UnknownErrorException(context);
    }
}

template <typename Action>
auto perform(const char* step, const std::string& key, Action action) {
    try {
        return action();
    } catch (const std::system_error& failure) {
        throwCloudException(step, key, failure);
    }
}

[[noreturn]] void refuse(const std::string& text) {
    throw UnknownErrorException(ExceptionContext(text));
}

bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

// --- files ----------------------------------------------------------------------------------------------------------

[[noreturn]] void failWith(int error) {
    throw std::system_error(error, std::generic_category());
}

bool isAbsence(const std::error_code& error) {
    return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
           error == std::errc::filename_too_long;
}

// Of an object's file; nothing when there is none.
std::optional<struct stat> statusOf(const fs::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) {
        return S_ISREG(status.st_mode) ? std::optional(status) : std::nullopt;
    }
    if (isAbsence({errno, std::generic_category()})) {
        return std::nullopt;
    }
    failWith(errno);
}

struct stat statusOf(const File& file) {
    const auto status = file.status();
    if (!S_ISREG(status.st_mode)) {
        failWith(ENOENT);
    }
    return status;
}

ObjectInfo infoOf(const std::string& key, const struct stat& status) {
    const auto milliseconds = std::int64_t{status.st_mtim.tv_sec} * 1000 + status.st_mtim.tv_nsec / 1'000'000;
    return {key, static_cast<std::uint64_t>(status.st_size), utils::long2Ptime(milliseconds)};
}

// The same for all parts of an object. A file that takes its place has another one: both are there until then, so their
// inodes differ.
std::string tagOf(const struct stat& status) {
    return std::to_string(status.st_ino) + '-' + std::to_string(status.st_mtim.tv_sec) + '.' +
           std::to_string(status.st_mtim.tv_nsec) + '-' + std::to_string(status.st_size);
}

void requireRange(const struct stat& status, std::uint64_t first, std::uint64_t last) {
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (first > last || last >= size) {
        refuse("the object has " + std::to_string(size) + " bytes, not those from " + std::to_string(first) + " to " +
               std::to_string(last));
    }
}

fs::path storablePath(const fs::path& folder, const std::string& key) {
    auto path = pathOf(folder, key);
    if (key.empty() || !isStorable(path)) {
        throw InvalidLocationException(ExceptionContext("no file can be named like \"" + key + '"'));
    }
    return path;
}

// Wait until the names in a folder are on the disk, unless it has gone with them.
void syncFolder(const fs::path& folder) {
    try {
        File(folder).sync();
    } catch (const std::system_error& failure) {
        if (!isAbsence(failure.code())) {
            throw;
        }
    }
}

// Put a complete file into its place. The bytes are on the disk before they have the name, and the name, with all
// folders above it, when this returns: another writer may have made those a moment ago, and not have got to that yet.
void publish(NewFile& file, const fs::path& root, const fs::path& path) {
    file.sync();
    for (int tries = 0; !file.moveTo(path); ++tries) {
        std::error_code error;
        fs::create_directories(path.parent_path(), error);
        // Whoever deletes the last object of a folder removes the folder, maybe this very one.
        if (tries == kMostTries || (error && !isAbsence(error))) {
            throw std::system_error(error ? error : std::make_error_code(std::errc::resource_unavailable_try_again));
        }
    }
    auto folder = path;
    do {
        folder = folder.parent_path();
        syncFolder(folder);
    } while (folder != root);
}

fs::path uploadFolder(const fs::path& uploads, const std::string& id) {
    auto folder = uploads / fs::path(id).filename();
    if (!startsWith(id, kUploadStart) || !fs::is_directory(folder)) {
        refuse("there is no upload \"" + id + '"');
    }
    return folder;
}

// The part's file in the upload's folder has this name and six letters or digits more, and that is the part's tag.
std::string partName(const PartInfo& part) {
    return std::to_string(part.Index) + '.';
}

// --- listing --------------------------------------------------------------------------------------------------------

// What is in a folder that may have gone, in the order of the keys.
std::vector<std::pair<Entry, fs::path>> entriesOf(const fs::path& folder) {
    std::vector<std::pair<Entry, fs::path>> entries;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        auto entry = entryOf(at->path().filename().native());
        std::error_code goneMeanwhile;
        if (entry.isOurs && entry.isFolder == at->is_directory(goneMeanwhile)) {
            entries.emplace_back(std::move(entry), at->path());
        }
    }
    if (error && !isAbsence(error)) {
        throw std::system_error(error);
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto& left, const auto& right) { return left.first.name < right.first.name; });
    return entries;
}

bool holdsObject(const fs::path& folder) {
    const auto entries = entriesOf(folder);
    return std::any_of(entries.begin(), entries.end(),
                       [](const auto& each) { return !each.first.isFolder || holdsObject(each.second); });
}

// One page of a listing.
struct Listing {
    const std::string& prefix;
    const std::string& after;  // the last entry of the page before
    bool isFolded;
    std::size_t most;
    std::vector<ObjectInfo> entries{};

    // Add what lies in a folder, whose keys begin with start, until there are enough.
    void add(const fs::path& folder, const std::string& start) {
        for (const auto& [entry, path] : entriesOf(folder)) {
            const auto key = start + entry.name;
            const bool mayHoldMore = entry.isFolder && !isFolded && startsWith(after, key);
            if (entries.size() == most) {
                return;
            }
            if (!startsWith(key, prefix) || (key <= after && !mayHoldMore)) {
                continue;
            }
            if (!entry.isFolder) {
                if (const auto status = statusOf(path)) {
                    entries.push_back(infoOf(key, *status));
                }
            } else if (!isFolded) {
                add(path, key);
            } else if (holdsObject(path)) {
                entries.push_back({key, 0, {}});
            }
        }
    }
};

}  // namespace

FolderClient::FolderClient(fs::path folder) : m_folder(std::move(folder)), m_uploads(m_folder / ".%uploads") {
    perform("open the store", m_folder.native(), [this] {
        const bool isNew = fs::create_directory(m_folder);
        m_folder = fs::canonical(m_folder);
        m_uploads = m_folder / m_uploads.filename();
        fs::create_directory(m_uploads);
        if (isNew) {
            syncFolder(m_folder.parent_path());
        }
        for (const auto& each : fs::directory_iterator(m_uploads)) {
            std::error_code goneMeanwhile;
            const auto changed = each.last_write_time(goneMeanwhile);
            if (!goneMeanwhile && changed < fs::file_time_type::clock::now() - kAbandonedAfter) {
                fs::remove_all(each, goneMeanwhile);
            }
        }
    });
}

FolderClient::~FolderClient() = default;

boost::optional<ObjectInfo> FolderClient::getObjectInfo(const std::string& key) {
    return perform("look up", key, [&]() -> boost::optional<ObjectInfo> {
        const auto status = statusOf(pathOf(m_folder, key));
        return status ? boost::make_optional(infoOf(key, *status)) : boost::none;
    });
}

void FolderClient::checkObjectName(const std::string& name) {
    storablePath({}, name);
}

// Each page reads the folders again that it lists from; nothing is remembered, so a token is good for ever.
std::vector<ObjectInfo> FolderClient::listObjects(const std::string& prefix, std::string& token,
                                                  const ListOptions& options) {
    return perform("list", prefix, [&] {
        const auto most = options.MaxKeys > 0
                              ? std::min<std::size_t>(static_cast<std::size_t>(options.MaxKeys), kMostOfPage)
                              : kMostOfPage;
        const auto folder = prefix.substr(0, prefix.rfind('/') + 1);
        Listing listing{prefix, token, !options.Delimiter.empty(), most + 1};
        listing.add(pathOf(m_folder, folder).parent_path(), folder);
        auto page = std::move(listing.entries);
        const bool isLast = page.size() <= most;
        page.resize(std::min(page.size(), most));
        token = isLast ? std::string() : page.back().Key;
        return page;
    });
}

void FolderClient::deleteObject(const std::string& key) {
    perform("delete", key, [&] {
        const auto path = pathOf(m_folder, key);
        if (::unlink(path.c_str()) != 0) {
            failWith(errno);
        }
        auto folder = path.parent_path();
        syncFolder(folder);
        while (folder != m_folder && ::rmdir(folder.c_str()) == 0) {
            folder = folder.parent_path();
        }
    });
}

// Whoever replaces or deletes the object meanwhile gives its name to another file, or to none: this one stays.
void FolderClient::getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) {
    perform("get", key, [&] {
        const File file(pathOf(m_folder, key));
        const auto status = statusOf(file);
        if (first == 0 && last == 0) {
            file.read(0, static_cast<std::uint64_t>(status.st_size), sink);
        } else {
            requireRange(status, first, last);
            file.read(first, last - first + 1, sink);
        }
    });
}

void FolderClient::putObject(const std::string& key, std::istream& data, std::uint64_t size) {
    perform("put", key, [&] {
        const auto path = storablePath(m_folder, key);
        NewFile file(m_uploads, "put.");
        file.append(data, size);
        publish(file, m_folder, path);
    });
}

// A file does not know the parts it was sent in. Those of this size are what an edit fetches and sends.
std::vector<PartInfo> FolderClient::getObjectParts(const std::string& key) {
    return perform("look up the parts of", key, [&] {
        std::vector<PartInfo> parts;
        if (const auto status = statusOf(pathOf(m_folder, key))) {
            const auto size = static_cast<std::uint64_t>(status->st_size);
            for (std::uint64_t offset = 0; offset < size; offset += kPartSize) {
                parts.push_back({parts.size(), offset, std::min(kPartSize, size - offset), tagOf(*status)});
            }
        }
        return parts;
    });
}

std::string FolderClient::startMultipartUpload(const std::string& key, const std::string& /*lastTag*/) {
    return perform("begin an upload of", key, [&] {
        storablePath(m_folder, key);
        auto folder = (m_uploads / (std::string(kUploadStart) + "XXXXXX")).native();
        if (::mkdtemp(folder.data()) == nullptr) {
            failWith(errno);
        }
        return fs::path(folder).filename().native();
    });
}

std::string FolderClient::uploadPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                     std::istream& data) {
    return perform("upload a part of", key, [&] {
        NewFile file(uploadFolder(m_uploads, uploadId), partName(part));
        file.append(data, part.Size);
        return file.keep();
    });
}

std::string FolderClient::copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) {
    return perform("copy a part of", key, [&] {
        const File stored(pathOf(m_folder, key));
        const auto status = statusOf(stored);
        if (!part.Tag.empty() && part.Tag != tagOf(status)) {
            throw ResourceInUseException(ExceptionContext('"' + key + "\" was replaced meanwhile"));
        }
        requireRange(status, part.Offset, part.Offset + part.Size - 1);
        NewFile file(uploadFolder(m_uploads, uploadId), partName(part));
        file.append(stored, part.Offset, part.Size);
        return file.keep();
    });
}

void FolderClient::abortMultipartUpload(const std::string& key, const std::string& uploadId) {
    perform("abort an upload of", key, [&] { fs::remove_all(uploadFolder(m_uploads, uploadId)); });
}

// What is not listed goes with the upload's folder: parts that were sent again, and parts that the object is not to
// have.
void FolderClient::completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                           const std::vector<PartInfo>& parts) {
    perform("complete an upload of", key, [&] {
        const auto folder = uploadFolder(m_uploads, uploadId);
        NewFile whole(m_uploads, "whole.");
        for (const auto& part : parts) {
            const auto path = folder / fs::path(part.Tag).filename();
            const auto status = startsWith(part.Tag, partName(part)) ? statusOf(path) : std::nullopt;
            if (!status || static_cast<std::uint64_t>(status->st_size) != part.Size) {
                refuse("part " + std::to_string(part.Index) + " of \"" + key + "\" was not sent like this");
            }
            whole.append(File(path), 0, part.Size);
        }
        publish(whole, m_folder, pathOf(m_folder, key));
        std::error_code leftForTheNextToOpenTheStore;
        fs::remove_all(folder, leftForTheNextToOpenTheStore);
    });
}

}  // namespace example
