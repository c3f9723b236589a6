// SPDX-License-Identifier: Apache-2.0
#include "ScratchFolder.hpp"

#include <foundation/services/Files.hpp>

#include <boost/filesystem/operations.hpp>

namespace bench {

ScratchFolder::ScratchFolder()
    : m_path(foundation::temporaryFolder() / boost::filesystem::unique_path("bench-%%%%%%%%")) {
    boost::filesystem::create_directory(m_path);
}

ScratchFolder::~ScratchFolder() {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(m_path, ignored);
}

}  // namespace bench
