// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace bench {

/// Memory outside the heap, every page of which is there from the start: whoever copies into it pays for the
/// copy alone.
class Arena {
public:
    /// Throws std::system_error when there is not that much memory.
    explicit Arena(std::size_t size);
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;
    ~Arena();

    char* data() const noexcept { return m_data; }
    std::size_t size() const noexcept { return m_size; }

private:
    char* m_data = nullptr;
    std::size_t m_size;
};

}  // namespace bench
