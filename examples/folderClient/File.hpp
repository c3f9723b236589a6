// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>

// Files of the operating system. Whatever they cannot do is a std::system_error that tells why. Threads: any.
namespace example {

/// An open file, or folder, for reading.
class File {
public:
    explicit File(const std::filesystem::path& path);
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File();

    struct stat status() const;
    /// Write size bytes from position on to sink. Throws when the file has fewer, or the sink takes no more.
    void read(std::uint64_t position, std::uint64_t size, std::ostream& sink) const;
    /// Wait until everything is on the disk; of a folder, the names in it.
    void sync() const;

private:
    friend class NewFile;
    int m_descriptor;
};

/// A new file for writing, which is deleted unless it is given a place.
class NewFile {
public:
    /// In that folder, under a name that nothing has: start, and six letters or digits.
    NewFile(const std::filesystem::path& folder, const std::string& start);
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile();

    /// Append the next size bytes of data. Throws when it ends before.
    void append(std::istream& data, std::uint64_t size);
    /// Append bytes of another file, without a detour through this process.
    void append(const File& other, std::uint64_t position, std::uint64_t size);
    void sync() const;
    /// Replace the file at that path, which may be missing. False: the folder is missing.
    bool moveTo(const std::filesystem::path& path);
    /// Let it stay where it is; answer its name.
    std::string keep() noexcept;

private:
    std::string m_path;
    int m_descriptor;
    bool m_isKept = false;
};

}  // namespace example
