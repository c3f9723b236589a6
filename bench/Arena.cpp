// SPDX-License-Identifier: Apache-2.0
#include "Arena.hpp"

#include <sys/mman.h>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace bench {

Arena::Arena(std::size_t size) : m_size(size) {
    void* const address =
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (address == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "no memory for the store");
    }
    m_data = static_cast<char*>(address);
    std::memset(m_data, 'a', size);
}

Arena::~Arena() {
    ::munmap(m_data, m_size);
}

}  // namespace bench
