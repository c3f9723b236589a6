// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <mutex>
#include <string>

namespace storage::cloudprovider {

/// Which version of its object an open file is an edit of: the one that unchanged bytes are taken from, and the only
/// one that storing the file may replace. Threads: any.
class EditedVersion {
public:
    /// The version that unchanged bytes are taken from; empty when the store cannot tell, or nothing is stored.
    std::string get() const;

    /// What storing the file may replace: until it is told, whatever is there.
    ExpectedObject expected() const;

    void set(ExpectedObject expected);

private:
    mutable std::mutex m_mutex;  // guards what follows; a leaf
    ExpectedObject m_expected = ExpectedObject::anything();
};

}  // namespace storage::cloudprovider
