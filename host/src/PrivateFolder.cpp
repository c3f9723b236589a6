// SPDX-License-Identifier: Apache-2.0
#include "FileDescriptor.hpp"

#include <foundation/services/Files.hpp>
#include <foundation/services/PrivateFolder.hpp>
#include <foundation/threads/Mutex.hpp>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace foundation {

namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kMostTries = 100;
constexpr std::string_view kRandomLetters = "XXXXXX";
constexpr std::string_view kNew = "new.";  // in names of folders that nobody has locked yet
constexpr std::string_view kFilePrefix = "file.";

// What else begins like a name of ours may be dear to somebody.
bool isNameOf(std::string_view prefix, std::string_view name) {
    return name.size() == prefix.size() + kRandomLetters.size() && name.substr(0, prefix.size()) == prefix;
}

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};
using FolderReader = std::unique_ptr<DIR, CloseFolder>;

// Calls action with each name but "." and "..". Whatever cannot be read is passed over.
template <typename Action>
void forEachName(int folder, Action action) {
    const int copy = ::openat(folder, ".", kOpenFolder);  // a position of its own
    const FolderReader reader(copy < 0 ? nullptr : ::fdopendir(copy));
    if (!reader) {
        if (copy >= 0) {
            ::close(copy);
        }
        return;
    }
    while (const auto* const entry = ::readdir(reader.get())) {  // NOLINT(concurrency-mt-unsafe): one thread reads it
        const std::string_view name(static_cast<const char*>(entry->d_name));
        if (name != "." && name != "..") {
            action(name.data());
        }
    }
}

// Tells whether nobody else has the lock; where there are no locks, that nobody can have it.
bool tryLock(int folder) {
    return ::flock(folder, LOCK_EX | LOCK_NB) == 0;
}

void removeIfLeft(int parent, const char* name) {
    const FileDescriptor folder(::openat(parent, name, kOpenFolder));
    struct stat status {};
    if (!folder.isOpen() || ::fstat(folder.get(), &status) != 0 || status.st_uid != ::geteuid() ||
        !tryLock(folder.get())) {
        return;
    }
    forEachName(folder.get(), [&](const char* file) {
        if (isNameOf(kFilePrefix, file)) {
            ::unlinkat(folder.get(), file, 0);
        }
    });
    ::unlinkat(parent, name, AT_REMOVEDIR);
}

void removeLeftFolders(const std::string& parent, const std::string& prefix) {
    const FileDescriptor folder(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.isOpen()) {
        const auto newPrefix = prefix + std::string(kNew);
        forEachName(folder.get(), [&](const char* name) {
            if (isNameOf(prefix, name) || isNameOf(newPrefix, name)) {
                removeIfLeft(folder.get(), name);
            }
        });
    }
}

int renameToNewName(const char* from, const char* to) {
    const int result = ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
    return result != 0 && (errno == EINVAL || errno == ENOSYS) ? ::rename(from, to) : result;
}

}  // namespace

// Exists as long as its object, and longer if files are left in it.
class PrivateFolder::LockedFolder {
public:
    // Under its name a folder is only ever seen locked.
    static std::shared_ptr<LockedFolder> make(const std::string& parent, const std::string& prefix) {
        for (int tries = 0; tries < kMostTries; ++tries) {
            const auto begin = parent + '/' + prefix;
            std::string newName = begin;
            newName.append(kNew).append(kRandomLetters);
            if (::mkdtemp(newName.data()) == nullptr) {
                throw std::system_error(errno, std::generic_category(), "cannot make a folder in " + parent);
            }
            try {
                auto folder = std::make_shared<LockedFolder>(newName);
                if (folder->takeName(begin + newName.substr(begin.size() + kNew.size()))) {
                    return folder;
                }
            } catch (...) {
                ::rmdir(newName.c_str());
                throw;
            }
        }
        throw std::system_error(EEXIST, std::generic_category(), "cannot make a folder in " + parent);
    }

    explicit LockedFolder(std::string path)
        : m_path(std::move(path)), m_folder(::open(m_path.c_str(), kOpenFolder)), m_isOthers(!lock()) {}
    LockedFolder(const LockedFolder&) = delete;
    LockedFolder& operator=(const LockedFolder&) = delete;
    ~LockedFolder() { ::rmdir(m_path.c_str()); }

    const std::string& path() const noexcept { return m_path; }

private:
    bool lock() const { return tryLock(m_folder.get()) || errno != EWOULDBLOCK; }

    // False when somebody who sweeps has come in between, or the name is taken.
    bool takeName(std::string name) {
        if (m_isOthers) {
            return false;
        }
        if (renameToNewName(m_path.c_str(), name.c_str()) != 0) {
            const int error = errno;  // what follows may change it
            if (error == ENOENT || error == EEXIST || error == ENOTEMPTY) {
                return false;
            }
            throw std::system_error(error, std::generic_category(), "cannot rename the folder " + m_path);
        }
        m_path = std::move(name);
        return true;
    }

    std::string m_path;
    const FileDescriptor m_folder;
    const bool m_isOthers;
};

// The process's folders of one prefix.
class PrivateFolder::FolderTable {
public:
    explicit FolderTable(std::string prefix) : m_prefix(std::move(prefix)) {}

    // The one in the temporary folder as it is now, made if there is none.
    std::shared_ptr<LockedFolder> current() {
        const auto parent = temporaryFolder().native();
        const MutexLock lock(m_mutex);
        auto& folder = m_folders[parent];
        if (!folder) {
            removeLeftFolders(parent, m_prefix);
            folder = LockedFolder::make(parent, m_prefix);
        }
        return folder;
    }

    void forget(const std::shared_ptr<LockedFolder>& gone) {
        const MutexLock lock(m_mutex);
        for (auto& [parent, folder] : m_folders) {
            if (folder == gone) {
                folder.reset();
            }
        }
    }

private:
    const std::string m_prefix;
    Mutex m_mutex;  // folders are made and swept under it; no other lock is taken under it
    std::map<std::string, std::shared_ptr<LockedFolder>> m_folders CLOUDPROVIDER_GUARDED_BY(m_mutex);  // by parent
};

PrivateFolder::PrivateFolder(const std::string& prefix) : m_folders(std::make_unique<FolderTable>(prefix)) {}

PrivateFolder::~PrivateFolder() = default;

std::shared_ptr<PrivateFolder> PrivateFolder::hold(const std::string& prefix) {
    struct Held {
        Mutex mutex;
        std::map<std::string, std::weak_ptr<PrivateFolder>> byPrefix CLOUDPROVIDER_GUARDED_BY(mutex);
    };
    static auto& held = *new Held;  // objects of static life may hold folders: never destroyed
    const MutexLock lock(held.mutex);
    auto& known = held.byPrefix[prefix];
    auto folder = known.lock();
    if (!folder) {
        folder.reset(new PrivateFolder(prefix));
        known = folder;
    }
    return folder;
}

boost::filesystem::path PrivateFolder::createFile() {
    for (bool isAgain = false;; isAgain = true) {
        const auto folder = m_folders->current();
        try {
            return createTemporaryFile(folder->path(), kFilePrefix);
        } catch (const std::system_error& failure) {
            if (isAgain || failure.code() != std::errc::no_such_file_or_directory) {
                throw;
            }
            m_folders->forget(folder);
        }
    }
}

}  // namespace foundation
