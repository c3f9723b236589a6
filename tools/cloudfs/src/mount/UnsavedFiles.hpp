// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mount/OpenFile.hpp"

#include <cstddef>
#include <string>

namespace cloudfs::mount {

/// Keeps on this machine what could not be stored of files: in a new folder below the one that is given, for each file
/// N.bytes, the bytes that were written, one range behind the other, and N.json, which says whose they are:
///
///     {"path": "/a/b", "size": 70, "keptOfStored": 50, "ranges": [{"offset": 10, "size": 20}]}
///
/// The file is the first 50 bytes of the stored one, made 70 bytes long by zeros, with 20 bytes from 10 on replaced.
/// keptOfStored is null where all of the stored one counts. Nobody else removes anything there.
///
/// Errors   Failure, which names the local path. One thread.
class UnsavedFiles {
public:
    /// folder: made if it is absent, once there is something to keep.
    explicit UnsavedFiles(std::string folder);

    /// Write what is not stored of a file, so that it survives a loss of power. Result: false, everything is stored.
    bool keep(OpenFile& file);

    /// The folder that was made; empty as long as nothing was kept.
    const std::string& place() const noexcept { return m_place; }

private:
    void makePlace();

    const std::string m_folder;
    std::string m_place;
    std::size_t m_count = 0;
};

}  // namespace cloudfs::mount
