// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>

namespace cloudfs::mount {

/// How a file differs from the stored one: which of its bytes were written, and how much of the stored file counts at
/// most. Whatever is neither is zeros. Not for several threads at once.
class ChangedRanges {
public:
    /// Bytes from begin to end, which is not one of them, were written.
    void add(std::uint64_t begin, std::uint64_t end);

    /// The file was given a size.
    void resize(std::uint64_t size);

    /// The file was stored.
    void clear();

    /// Begins and ends, in order and with a gap between each two.
    const std::map<std::uint64_t, std::uint64_t>& written() const noexcept { return m_written; }

    /// How many bytes of the stored file's beginning still count, where nothing was written; all it has, if it has
    /// fewer.
    std::uint64_t keptOfStored() const noexcept { return m_keptOfStored; }

private:
    std::map<std::uint64_t, std::uint64_t> m_written;
    std::uint64_t m_keptOfStored = UINT64_MAX;
};

}  // namespace cloudfs::mount
