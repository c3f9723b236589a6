// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Arena.hpp"

#include <cstdint>
#include <string>

/// What bytes cost that pass through temporary files, done with as few calls as the system allows.
namespace bench {

/// How a file is mapped.
enum class Pages {
    Plain,
    Huge  ///< the system is told that large pages suit; it may take no notice (madvise(2), MADV_HUGEPAGE)
};

/// A temporary file beside those of the provider; its blocks are reserved.
class FloorFile {
public:
    /// Makes the file and maps it. Throws std::system_error.
    explicit FloorFile(std::uint64_t size, Pages pages = Pages::Plain);
    FloorFile(const FloorFile&) = delete;
    FloorFile& operator=(const FloorFile&) = delete;
    /// Deletes the file.
    ~FloorFile();

    /// The mapped bytes.
    char* data() const noexcept { return m_data; }

    /// Map the file again after unmap.
    void map();
    void unmap() noexcept;

private:
    void map(int descriptor);

    std::string m_path;
    std::uint64_t m_size;
    Pages m_pages;
    char* m_data = nullptr;
};

/// Fill files of partSize from a buffer of one call's size, copy each out to the arena when it is full, and
/// delete all of them at the end.
void writeThroughFiles(const Arena& arena, std::uint64_t size, std::uint64_t partSize, Pages pages);

/// Fill files of partSize from the arena, copy each out to a buffer of one call's size, and keep no more of
/// them than cacheSize bytes.
void readThroughFiles(const Arena& arena, std::uint64_t size, std::uint64_t partSize, std::uint64_t cacheSize,
                      Pages pages);

/// Copy bytes to a buffer of one call's size, over and over, as a reader does.
void copyOut(const char* bytes, std::uint64_t size);

}  // namespace bench
