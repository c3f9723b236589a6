// SPDX-License-Identifier: Apache-2.0
#include "reading/PieceBuffer.hpp"

#include <algorithm>
#include <utility>

namespace storage::cloudprovider {

PieceBuffer::PieceBuffer(std::uint64_t offset, std::uint64_t size, Take take)
    : m_offset(offset), m_size(size), m_take(std::move(take)) {}

std::streamsize PieceBuffer::xsputn(const char* data, std::streamsize count) {
    const auto taken = std::min(static_cast<std::uint64_t>(count), m_size - m_taken);
    if (m_failure || taken == 0) {
        return 0;
    }
    try {
        m_take(m_offset + m_taken, {data, static_cast<std::size_t>(taken)});
    } catch (...) {
        m_failure = std::current_exception();
        return 0;
    }
    m_taken += taken;
    return static_cast<std::streamsize>(taken);
}

PieceBuffer::int_type PieceBuffer::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) {
        return traits_type::not_eof(character);
    }
    const auto byte = traits_type::to_char_type(character);
    return PieceBuffer::xsputn(&byte, 1) == 1 ? character : traits_type::eof();
}

PieceBuffer::pos_type PieceBuffer::seekoff(off_type offset, std::ios_base::seekdir way,
                                           std::ios_base::openmode /*which*/) {
    return offset == 0 && way == std::ios_base::cur ? pos_type(static_cast<off_type>(m_taken)) : pos_type(off_type(-1));
}

}  // namespace storage::cloudprovider
