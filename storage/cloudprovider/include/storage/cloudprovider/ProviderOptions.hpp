// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace storage::cloudprovider {

/// In which order moving a file takes its two steps that cannot be one.
enum class MoveOrder : std::uint32_t {
    /// The source is removed, then the destination stored: a failure in between loses the file.
    RemoveSourceFirst = 0,
    /// The destination is stored, then the source removed, in the version that was copied: a failure in between leaves
    /// both.
    StoreDestinationFirst = 1
};

/// How a provider transfers and keeps the bytes of open files. The defaults change nothing: every transfer is made by
/// the thread that needs it, one at a time.
///
/// A file that is open already keeps the options of the provider that opened it first, if several share a client.
struct ProviderOptions {
    /// Most threads that transfer for the provider's files; they are started as they are needed and end with the
    /// provider and its last open stream. 0: the calling thread does it all, none is started. Each costs a stack, and a
    /// connection of the client. With any, copies and moves whose bytes travel write their destination sequentially, as
    /// openSequentialWriter does. Threads do not survive a fork: see docs/semantics.md.
    std::uint32_t transferThreads = 0;

    /// How many parts are fetched ahead of a stream that reads from part to part. Nothing is without transferThreads.
    /// Costs the room of as many parts for each such stream on the temporary disk, and fetches for nothing up to that
    /// many parts when reading ends early.
    std::uint32_t readAheadParts = 0;

    /// Size in bytes of the parts of files that are written; 0 counts as not set. Not set: VX_CLOUD_PART_SIZE_OVERRIDE,
    /// else 5 MiB. Larger parts mean fewer requests, and more bytes for a small change.
    std::optional<std::uint64_t> partSize = std::nullopt;

    /// Bytes of parts kept for each open file after they were read. Not set: VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE,
    /// else 100 MiB.
    std::optional<std::uint64_t> cacheSize = std::nullopt;

    /// Give a part's temporary file the room that its bytes need, in steps, instead of that of a whole part at once:
    /// small files cost little. Large ones cost some more system calls.
    bool lightBuffers = false;

    /// Most bytes of memory for parts, of all files of the provider together; parts that find no room there lie in
    /// temporary files. A part counts with all that it may hold, and takes the pages that were touched. 0: all lie in
    /// temporary files.
    std::uint64_t partMemory = 0;

    /// Let the store copy files by itself where it can, so that no byte travels; moves, too, with
    /// StoreDestinationFirst. Whoever opens the destination meanwhile waits. Where the store cannot, a copy costs
    /// three more calls.
    bool copyInStore = false;

    /// The order of moving. StoreDestinationFirst needs the room of both in the store.
    MoveOrder moveOrder = MoveOrder::RemoveSourceFirst;
};

}  // namespace storage::cloudprovider
