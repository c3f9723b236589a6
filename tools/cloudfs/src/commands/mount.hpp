// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/Session.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cloudfs::commands {

/// What `mount` was asked for.
struct MountRequest {
    std::string mountPoint;
    /// As mount(8) has them: ro, rw, allow_other; several may be separated by commas.
    std::vector<std::string> options;
    bool allowsOthers = false;
    /// Octal.
    std::optional<std::string> umask;
    std::optional<std::uint32_t> uid;
    std::optional<std::uint32_t> gid;
    double attributesCount = 1;  ///< seconds
    std::chrono::seconds unmountTimeout = std::chrono::seconds(60);
    std::optional<std::string> unsavedFolder;
};

/// Mount the store on a folder, and answer until it is unmounted or a signal arrives. Errors: see main.cpp; a Failure
/// when something was not stored in the end.
void mount(const Session& session, const MountRequest& request);

}  // namespace cloudfs::commands
