// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "local/FileDescriptor.hpp"
#include "local/SpoolFile.hpp"

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace cloudfs {

/// The argument that stands for standard input or output.
inline constexpr const char* kStandardStream = "-";

/// A file of this machine, or standard input, to read from its beginning to its end.
class LocalSource {
public:
    /// Repeated: may be rewound. What cannot be read twice is kept on the temporary disk for it.
    enum class Reading { Once, Repeated };

    /// Open a file; "-" is standard input.
    ///
    /// Errors   Failure: not there, no rights, a folder, a name that is not valid UTF-8.
    /// OperationInterrupted.
    explicit LocalSource(const std::string& path, Reading reading = Reading::Once);

    /// What is to be read of a regular file as it was when it was opened; nothing where that is not known.
    std::optional<std::uint64_t> size() const noexcept { return m_size; }

    /// Read up to count bytes; 0 at the end. A regular file is read as far as it went when it was opened, however it
    /// grows; one that got shorter is a failure. Errors: Failure, OperationInterrupted.
    std::size_t read(char* buffer, std::size_t count);

    /// Go back to where the reading began; only for Reading::Repeated. Errors: Failure.
    void rewind();

private:
    std::size_t readSpooled(char* buffer, std::size_t count);

    std::string m_path;
    FileDescriptor m_file;
    int m_descriptor = -1;
    off_t m_start = 0;  // where standard input stood; it may have been read in part by somebody else
    std::optional<std::uint64_t> m_size;
    std::uint64_t m_read = 0;
    std::optional<SpoolFile> m_spool;
    bool m_isSpoolComplete = false;
};

/// The last component of a local path, such as "b" for "a/b/"; empty where it names no file of its own: "/",
/// ".", "..", and standard input.
std::string localName(const std::string& path);

}  // namespace cloudfs
