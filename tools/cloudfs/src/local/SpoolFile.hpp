// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "local/FileDescriptor.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace cloudfs {

/// Bytes that are kept on the temporary disk, to be read again. The file has no name: whatever happens to the process,
/// nothing is left of it.
///
/// Errors   Failure, which names the temporary folder; OperationInterrupted.
class SpoolFile {
public:
    SpoolFile();

    /// Bytes kept so far.
    std::uint64_t size() const noexcept { return m_size; }

    /// Keep more bytes, after the others. One that failed is the last operation.
    void append(std::string_view data);

    /// Read up to count bytes, at least one, from a position below size().
    std::size_t read(std::uint64_t position, char* buffer, std::size_t count) const;

private:
    FileDescriptor m_file;
    std::uint64_t m_size = 0;
};

}  // namespace cloudfs
