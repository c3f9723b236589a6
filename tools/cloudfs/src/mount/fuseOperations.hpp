// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mount/FileSystem.hpp"
#include "mount/MountOptions.hpp"
#include "mount/fuse.hpp"

#include <foundation/services/InterruptScope.hpp>

#include <memory>

namespace cloudfs::mount {

/// What answers requests: the user data of a session of these operations, which it outlives.
struct RequestContext {
    FileSystem& files;
    const MountOptions& options;
    /// Interrupts whatever waits for the store, writes, too.
    std::shared_ptr<const foundation::InterruptSource> all;
};

/// The operations of libfuse's low-level interface, by a FileSystem. A failure is an errno value for the program; those
/// that it cannot tell apart (EIO) are logged, too.
const fuse_lowlevel_ops& fuseOperations();

}  // namespace cloudfs::mount
