// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>

#include <cstdint>

namespace foundation::storage::provider {

/// What a provider tells about a file. A plain value.
class FileAttributes {
public:
    /// size in bytes, nothing when unknown; lastModified in UTC, not_a_date_time when unknown.
    FileAttributes(boost::optional<std::uint64_t> size, boost::posix_time::ptime lastModified, bool writable)
        : m_size(size), m_lastModified(lastModified), m_writable(writable) {}

    /// In bytes; nothing when unknown.
    const boost::optional<std::uint64_t>& getSize() const noexcept { return m_size; }
    /// In UTC; not_a_date_time when unknown.
    const boost::posix_time::ptime& getLastModified() const noexcept { return m_lastModified; }
    /// Whether the file may be written, as far as the provider knows.
    bool isWritable() const noexcept { return m_writable; }

private:
    boost::optional<std::uint64_t> m_size;
    boost::posix_time::ptime m_lastModified;
    bool m_writable;
};

/// What a provider tells about a folder. A plain value.
class FolderAttributes {
public:
    /// lastModified in UTC; not_a_date_time for a folder that has no time of its own.
    FolderAttributes(boost::posix_time::ptime lastModified, bool writable)
        : m_lastModified(lastModified), m_writable(writable) {}

    /// In UTC; not_a_date_time when the folder has no time of its own.
    const boost::posix_time::ptime& getLastModified() const noexcept { return m_lastModified; }
    /// Whether the folder may be written to, as far as the provider knows.
    bool isWritable() const noexcept { return m_writable; }

private:
    boost::posix_time::ptime m_lastModified;
    bool m_writable;
};

}  // namespace foundation::storage::provider
