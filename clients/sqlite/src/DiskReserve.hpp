// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace storage::cloudprovider::sqlite {

/// A file beside a store's that does nothing but take up room, to be given up on a full disk: what removes something
/// makes the log longer before it makes anything shorter. Nothing here throws; without a reserve the store works, too.
/// Threads: any.
class DiskReserve {
public:
    /// Values   storeFile: an absolute path; empty: there is no reserve and never will be.
    explicit DiskReserve(const std::string& storeFile);

    /// Make it as large as the store needs it by now, if the disk has ample room.
    void keep() const noexcept;

    /// Make it with whatever room is left, or leave it as it was.
    void restore() const noexcept;

    void giveUp() const noexcept;

    /// Whether the disk has so little room that what was removed ought to be given back at once.
    bool isDiskShort() const noexcept;

private:
    std::uint64_t wantedSize() const noexcept;
    void resize(std::uint64_t size) const noexcept;

    const std::string m_storeFile;
    const std::string m_file;
};

}  // namespace storage::cloudprovider::sqlite
