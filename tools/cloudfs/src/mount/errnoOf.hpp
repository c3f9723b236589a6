// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>

namespace cloudfs::mount {

/// A failure that is an errno value already.
class ErrnoError : public std::exception {
public:
    explicit ErrnoError(int value) noexcept : m_value(value) {}

    int value() const noexcept { return m_value; }
    const char* what() const noexcept override;

private:
    int m_value;
};

/// The errno value that programs see for a failure: by its code where it has one, ENOSPC where the system's or the
/// store's words say that a disk is full, else EIO.
int errnoOf(const std::exception& failure) noexcept;

/// The same for a write, where Unsupported means that the store takes no file of that size.
int errnoOfWrite(const std::exception& failure) noexcept;

/// The same for a read: what cannot be had because the object was removed or replaced meanwhile is ESTALE.
int errnoOfRead(const std::exception& failure) noexcept;

}  // namespace cloudfs::mount
