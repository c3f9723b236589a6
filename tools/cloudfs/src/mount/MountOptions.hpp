// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

namespace cloudfs::mount {

/// How a store is mounted. A plain value.
struct MountOptions {
    std::string mountPoint;
    /// How messages and the system's table of mounts name what is mounted.
    std::string name;
    bool isReadOnly = false;
    bool allowsOthers = false;
    /// Whose the files seem to be, and the modes that they do not have.
    uid_t uid = 0;
    gid_t gid = 0;
    mode_t umask = 0;
    /// For how long listings and attributes count, here and in the kernel.
    std::chrono::nanoseconds attributesCount = std::chrono::seconds(1);
    /// For how long unmounting tries to store what is not stored.
    std::chrono::seconds unmountTimeout = std::chrono::seconds(60);
    /// Where what could not be stored goes.
    std::string unsavedFolder;
};

}  // namespace cloudfs::mount
