// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>

#include <string>

namespace bench {

/// A folder of its own in the temporary folder, removed with all that is in it at the end.
class ScratchFolder {
public:
    /// Throws boost::filesystem::filesystem_error.
    ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder();

    const boost::filesystem::path& path() const { return m_path; }

    /// The path of a file in it.
    std::string file(const std::string& name) const { return (m_path / name).native(); }

private:
    const boost::filesystem::path m_path;
};

}  // namespace bench
