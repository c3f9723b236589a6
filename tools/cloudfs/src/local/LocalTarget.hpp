// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "local/FileDescriptor.hpp"

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace cloudfs {

/// A file of this machine to write, which appears complete or not at all.
///
/// The bytes go to a temporary file in the same folder, which takes the target's name when it is complete.
/// Devices and pipes are written directly.
class LocalTarget {
public:
    /// What to do when the target's name is a symbolic link: write the file it leads to, or put a file in the
    /// link's place.
    enum class Links { Follow, Replace };

    /// Errors   Failure: the folder is missing or closed to us, the target is a folder. OperationInterrupted.
    LocalTarget(std::string path, Links links);
    LocalTarget(const LocalTarget&) = delete;
    LocalTarget& operator=(const LocalTarget&) = delete;

    /// Removes the temporary file unless complete() took it away.
    ~LocalTarget();

    /// Errors   Failure, OutputClosed, OperationInterrupted.
    void write(std::string_view data);

    /// Write bytes that have their place at offset. For a file, which isFile tells. Threads: any, at once.
    ///
    /// Errors   Failure.
    void writeAt(std::uint64_t offset, std::string_view data) const;

    /// Whether bytes have places in it, and go away with this, so that another try can begin from nothing; else it is a
    /// device or a pipe.
    bool isFile() const noexcept { return !m_temporaryPath.empty(); }

    /// Give the file its name; the last call. An existing file is replaced and leaves its permissions behind.
    ///
    /// Values   lastModified: what the file shows, in UTC; not_a_date_time: now.
    /// Errors   Failure.
    void complete(const boost::posix_time::ptime& lastModified);

private:
    void createTemporary();

    std::string m_path;
    std::string m_temporaryPath;  // empty while there is none
    FileDescriptor m_file;
};

}  // namespace cloudfs
