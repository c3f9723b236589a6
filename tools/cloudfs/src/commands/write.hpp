// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <cstdint>
#include <string>

namespace cloudfs::commands {

/// What `write` was asked for.
struct WriteRequest {
    /// Where to begin, in bytes, not negative.
    std::int64_t offset = 0;
    /// A local file, or "-" for standard input.
    std::string local;
    std::string path;
};

/// Overwrite an existing file's bytes from an offset on with a local file's; the rest stays. Begins again when the file
/// is in use; see RepeatedEdit. Errors: see main.cpp.
void write(const Session& session, const WriteRequest& request);

}  // namespace cloudfs::commands
