// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <string>
#include <vector>

namespace cloudfs::commands {

/// What becomes of the source when it is stored at the destination.
enum class Source { Kept, Removed };

/// What to copy or move, whether it may replace files at its destination, and whether folders are meant, too.
struct TransferRequest {
    /// Files and folders of the store, or patterns of them, and last where they go.
    const std::vector<std::string>& operands;
    bool mayReplace = false;
    bool isRecursive = false;
};

/// Copy or move files and folders, into the destination if that is a folder, which several of them need. A source is
/// removed when all of it is stored, and only what was copied of it. What fails does not keep the others from being
/// copied. Errors: see main.cpp.
///
/// Values   command: how messages call it.
void transfer(const Session& session, const TransferRequest& request, Source source, const std::string& command);

}  // namespace cloudfs::commands
