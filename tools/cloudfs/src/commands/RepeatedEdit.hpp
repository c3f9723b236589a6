// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/Patience.hpp"

#include <chrono>
#include <functional>

namespace cloudfs {

class LocalSource;
class ProgressBar;

}  // namespace cloudfs

namespace cloudfs::commands {

/// An edit of a file of the store that begins again when the file, or the store, turns out to be in use: another writer
/// replaced the file meanwhile, so that the store refused the edit, or kept the store busy.
class RepeatedEdit {
public:
    /// Reads the source, makes the whole edit and stores it, or throws and stores nothing.
    using Attempt = std::function<void(ProgressBar& progress)>;

    /// Values   source: opened for repeated reading, and outlives this. limit: as Patience's.
    explicit RepeatedEdit(LocalSource& source, std::chrono::milliseconds limit = Patience::kLimit);

    /// Make the edit, as often as it takes; each attempt reads the source from its beginning and has a progress bar of
    /// its own.
    ///
    /// Errors   as Patience.
    void run(const Attempt& attempt);

private:
    LocalSource& m_source;
    Patience m_patience;
};

}  // namespace cloudfs::commands
