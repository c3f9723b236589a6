// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <streambuf>
#include <string_view>

namespace storage::cloudprovider {

/// Hands what is written to it on to a function, without keeping it. When that throws, nothing more is taken. One
/// thread.
class PieceBuffer : public std::streambuf {
public:
    using Take = std::function<void(std::uint64_t offset, std::string_view bytes)>;

    /// offset: of the first byte. size: more bytes are not taken.
    PieceBuffer(std::uint64_t offset, std::uint64_t size, Take take);

    /// What the function threw, if it did.
    std::exception_ptr failure() const noexcept { return m_failure; }

protected:
    std::streamsize xsputn(const char* data, std::streamsize count) override;
    int_type overflow(int_type character) override;

    /// Tells the position only.
    pos_type seekoff(off_type offset, std::ios_base::seekdir way, std::ios_base::openmode which) override;

private:
    const std::uint64_t m_offset;
    const std::uint64_t m_size;
    const Take m_take;
    std::uint64_t m_taken = 0;
    std::exception_ptr m_failure;
};

}  // namespace storage::cloudprovider
