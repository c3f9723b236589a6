// SPDX-License-Identifier: Apache-2.0
#include "local/temporaryFolder.hpp"

#include "terminal/failures.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace cloudfs {

void useTemporaryFolder(const std::string& folder) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) {
        throwLocalFailure(folder, errno);
    }
    if (!S_ISDIR(status.st_mode)) {
        throwLocalFailure(folder, ENOTDIR);
    }
    if (::access(folder.c_str(), W_OK | X_OK) != 0) {
        throwLocalFailure(folder, errno);
    }
    ::setenv("TMPDIR", folder.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
}

}  // namespace cloudfs
