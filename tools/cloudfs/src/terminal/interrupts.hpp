// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>

namespace cloudfs {

/// Let SIGINT, SIGTERM and SIGHUP request the host's interrupt instead of ending the process, and make the calling
/// thread the one that is interrupted; a second signal ends the process. A signal that is ignored already stays
/// ignored. SIGPIPE is ignored: writing reports it.
void watchInterrupts();

/// The signal that requested an interrupt, if one did.
std::optional<int> interruptingSignal();

/// Wait until a descriptor can be read from (POLLIN) or written to (POLLOUT) without blocking.
///
/// Errors   OperationInterrupted, also for a signal that came just before.
void waitUntilReady(int descriptor, short events);

/// Wait for that long, not at all when it is not positive. Errors: as waitUntilReady, at once.
void pauseFor(std::chrono::nanoseconds duration);

}  // namespace cloudfs
