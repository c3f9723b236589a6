// SPDX-License-Identifier: Apache-2.0
#include "commands/RepeatedEdit.hpp"

#include "local/LocalSource.hpp"
#include "terminal/ProgressBar.hpp"

#include <utility>

namespace cloudfs::commands {

RepeatedEdit::RepeatedEdit(LocalSource& source, std::chrono::milliseconds limit)
    : m_source(source), m_patience(limit) {}

void RepeatedEdit::run(const Attempt& attempt) {
    bool isFirst = true;
    m_patience.run([&] {
        if (!std::exchange(isFirst, false)) {
            m_source.rewind();
        }
        ProgressBar progress(m_source.size());
        attempt(progress);
    });
}

}  // namespace cloudfs::commands
