// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>

#include <boost/filesystem/path.hpp>

#include <memory>
#include <string>

namespace foundation {

/// Temporary files that do not outlive their process for long, even if it is killed.
///
/// They lie in a folder of the process's own below temporaryFolder(), which is made with the first file: its name is
/// the prefix followed by random letters, and only its owner may enter it. The process holds a lock (flock) on the
/// folder. Whoever makes a folder of that prefix there deletes first what other processes of the same user have left,
/// which is what nobody holds a lock on: files and folders with names such as it gives, and through no link. Where the
/// file system knows no such locks it deletes nothing of others.
///
/// When TMPDIR changes, later files lie in a folder below the new one. A folder that somebody deletes is made again.
///
/// Threads  any.
class FOUNDATION_HOST_EXPORT PrivateFolder {
public:
    /// The process's folder of that prefix: the same one for as long as anybody holds it, deleted afterwards if it is
    /// empty. prefix: not empty, without a slash.
    static std::shared_ptr<PrivateFolder> hold(const std::string& prefix);

    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    ~PrivateFolder();

    /// Create an empty file under a fresh name, which only its owner may read or write.
    ///
    /// Result   the file's absolute path; the caller deletes the file, and holds the folder until then.
    /// Errors   std::system_error, naming the folder; std::bad_alloc. Neither leaves a file.
    boost::filesystem::path createFile();

private:
    class LockedFolder;
    class FolderTable;

    explicit PrivateFolder(const std::string& prefix);

    const std::unique_ptr<FolderTable> m_folders;
};

}  // namespace foundation
