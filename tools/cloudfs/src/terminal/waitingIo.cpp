// SPDX-License-Identifier: Apache-2.0
#include "terminal/waitingIo.hpp"

#include "terminal/failures.hpp"
#include "terminal/interrupts.hpp"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace cloudfs {

namespace {

// A pipe or terminal that is ready takes this much without blocking, so that no write sleeps where an
// interrupt would not be noticed (POSIX, write: PIPE_BUF).
constexpr std::size_t kPipeChunk = PIPE_BUF;
constexpr std::size_t kFileChunk = 1024 * 1024;

std::size_t chunkSize(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? kFileChunk : kPipeChunk;
}

}  // namespace

std::size_t readSome(int descriptor, const std::string& path, char* buffer, std::size_t count) {
    while (true) {
        waitUntilReady(descriptor, POLLIN);
        const auto result = ::read(descriptor, buffer, count);
        if (result >= 0) {
            return static_cast<std::size_t>(result);
        }
        if (errno != EINTR && errno != EAGAIN) {
            throwLocalFailure(path, errno);
        }
    }
}

void writeAll(int descriptor, const std::string& path, std::string_view data) {
    const auto chunk = chunkSize(descriptor);
    while (!data.empty()) {
        waitUntilReady(descriptor, POLLOUT);
        const auto result = ::write(descriptor, data.data(), std::min(chunk, data.size()));
        if (result >= 0) {
            data.remove_prefix(static_cast<std::size_t>(result));
        } else if (errno == EPIPE) {
            throw OutputClosed();
        } else if (errno != EINTR && errno != EAGAIN) {
            throwLocalFailure(path, errno);
        }
    }
}

}  // namespace cloudfs
