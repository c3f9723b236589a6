// SPDX-License-Identifier: Apache-2.0
#include "commands/mount.hpp"

#include "mount/MountSession.hpp"
#include "terminal/failures.hpp"

#include <foundation/services/ExecutionContext.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <iostream>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using mount::MountOptions;

namespace {

constexpr mode_t kAllModes = 0777;

mode_t parseUmask(const std::string& text) {
    constexpr int kOctal = 8;
    mode_t value = 0;
    const auto* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, value, kOctal);
    if (error != std::errc() || last != end || value > kAllModes) {
        throw UsageError("a umask is an octal number up to 777, not: " + text);
    }
    return value;
}

// Threads that are there may make files meanwhile.
mode_t currentUmask() {
    const auto value = ::umask(kAllModes);
    ::umask(value);
    return value;
}

// By the system's own names: messages, and the command that unmounts, work from every folder.
std::string resolveMountPoint(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        throwLocalFailure(path, errno);
    }
    if (!S_ISDIR(status.st_mode)) {
        throwLocalFailure(path, ENOTDIR);
    }
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    if (!resolved) {
        throwLocalFailure(path, errno);
    }
    return resolved.get();
}

// Where programs keep what has to survive them (the XDG base directories).
std::string usualUnsavedFolder() {
    const char* const state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && *state == '/') {
        return std::string(state) + "/cloudfs/unsaved";
    }
    const char* const home = std::getenv("HOME");
    return std::string(home != nullptr ? home : "/var/tmp") + "/.local/state/cloudfs/unsaved";
}

void applyOptions(const std::string& text, MountOptions& options) {
    for (std::size_t begin = 0; begin <= text.size();) {
        const auto end = std::min(text.find(',', begin), text.size());
        const auto option = text.substr(begin, end - begin);
        if (option == "ro" || option == "rw") {
            options.isReadOnly = option == "ro";
        } else if (option == "allow_other") {
            options.allowsOthers = true;
        } else {
            throw UsageError("mount takes the options ro, rw and allow_other behind -o, not: " + option);
        }
        begin = end + 1;
    }
}

MountOptions toOptions(const Session& session, const MountRequest& request) {
    MountOptions options;
    options.mountPoint = resolveMountPoint(request.mountPoint);
    options.name = session.url.name();
    options.allowsOthers = request.allowsOthers;
    for (const auto& text : request.options) {
        applyOptions(text, options);
    }
    options.uid = request.uid.value_or(::getuid());
    options.gid = request.gid.value_or(::getgid());
    options.umask = request.umask ? parseUmask(*request.umask) : currentUmask();
    options.attributesCount =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(request.attributesCount));
    options.unmountTimeout = request.unmountTimeout;
    options.unsavedFolder = request.unsavedFolder.value_or(usualUnsavedFolder());
    return options;
}

}  // namespace

void mount(const Session& session, const MountRequest& request) {
    const auto options = toOptions(session, request);
    const auto client = session.openClient(options.isReadOnly ? MissingStore::Refuse : MissingStore::Create);
    mount::FileSystem files(client, session.providerFor(client), options.attributesCount);
    mount::MountSession mounted(files, options);
    const bool isStored = mounted.run();
    if (mounted.isStuck()) {
        std::cerr << "the store does not answer\n" << std::flush;
        std::_Exit(isStored ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    if (!isStored) {
        throw Failure(ErrorCode::Unknown, session.url.name(), "not everything is stored");
    }
}

}  // namespace cloudfs::commands
