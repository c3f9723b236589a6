// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <optional>
#include <string>

namespace storage::cloudprovider {

/// Which version of its object an open file is an edit of: the one that unchanged bytes are taken from, and the only
/// one that storing the file may replace. Until it is told, that is whatever is there. Threads: any.
class EditedVersion {
public:
    /// storeMayTell: whether the store may tell versions apart, as far as is known.
    explicit EditedVersion(bool storeMayTell);

    /// The version that unchanged bytes are taken from; empty when the store cannot tell, or nothing is stored.
    std::string get() const;

    /// What storing the file may replace.
    ExpectedObject expected() const;

    /// Whether asking the store for a version may tell anything. Not once it has answered an empty one.
    bool mayBeTold() const;

    /// The file replaces what is expected, without taking anything from it.
    void replace(const ExpectedObject& expected);

    /// The file is an edit of the object that has that version; nothing: there is no object.
    void editOf(std::optional<std::string> version);

    /// The file has left its name: what is stored there need not be what it was opened from.
    void detach();
    bool isDetached() const;

private:
    mutable foundation::Mutex m_mutex;  // a leaf
    bool m_storeMayTell CLOUDPROVIDER_GUARDED_BY(m_mutex);
    bool m_isDetached CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
    ExpectedObject m_expected CLOUDPROVIDER_GUARDED_BY(m_mutex) = ExpectedObject::anything();
};

}  // namespace storage::cloudprovider
