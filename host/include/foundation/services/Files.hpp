// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>

#include <boost/filesystem/path.hpp>

#include <cstdint>
#include <string_view>

namespace foundation {

/// Folder for temporary files: the environment's TMPDIR when it is set and not empty, else /tmp.
FOUNDATION_HOST_EXPORT boost::filesystem::path temporaryFolder();

/// Create an empty file under a fresh name in a folder, such as temporaryFolder().
///
/// The name is prefix followed by random letters. The file is made exclusively (never an existing one) and
/// only its owner may read or write it (POSIX mkstemp).
/// Result   the file's path below folder as it was given; the caller deletes the file, which a killed process leaves
///          (PrivateFolder's are deleted by the next one).
/// Errors   std::system_error, naming the folder; std::bad_alloc. Neither leaves a file.
/// Threads  any.
FOUNDATION_HOST_EXPORT boost::filesystem::path createTemporaryFile(const boost::filesystem::path& folder,
                                                                   std::string_view prefix);

/// Reserve disk blocks for size bytes of a file from offset on, so that writing to a mapping of them cannot hit a full
/// disk. A file that ends before grows. Does nothing where the file system cannot reserve.
///
/// Errors   std::system_error: no space left, no rights, larger than the file system allows.
/// Threads  any; nobody may write to these bytes meanwhile, since some systems reserve by writing zeros where they find
///          zeros. Other bytes of the file may be written.
FOUNDATION_HOST_EXPORT void reserveBlocks(const boost::filesystem::path& path, std::uint64_t offset,
                                          std::uint64_t size);

/// Hint that mapped bytes will be filled, and read again, as a whole, so that large pages are worth their making. Where
/// the system has none, or does not want to, nothing happens.
///
/// Threads  any.
FOUNDATION_HOST_EXPORT void adviseLargePages(char* data, std::uint64_t size) noexcept;

/// Delete a file. Throws boost::filesystem::filesystem_error when it cannot be deleted or is not there.
FOUNDATION_HOST_EXPORT void removeFile(const boost::filesystem::path& path);

}  // namespace foundation
