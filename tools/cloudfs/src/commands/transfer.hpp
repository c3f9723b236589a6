// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"
#include "store/StorePath.hpp"

#include <string>

namespace cloudfs::commands {

/// What becomes of the source when it is stored at the destination.
enum class Source { Kept, Removed };

/// A file or folder to copy or move, where to, whether it may replace files there, and whether folders are meant, too.
struct TransferRequest {
    StorePath from;
    StorePath to;
    bool mayReplace = false;
    bool isRecursive = false;
};

/// Copy or move a file or folder, into the destination if that is a folder. A source is removed when everything is
/// stored, and only what was copied of it. Errors: see main.cpp.
///
/// Values   command: how messages call it.
void transfer(const Session& session, const TransferRequest& request, Source source, const std::string& command);

}  // namespace cloudfs::commands
