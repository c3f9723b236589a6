// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mount/fuse.hpp"

#include <foundation/services/InterruptScope.hpp>

#include <memory>

namespace cloudfs::mount {

/// Lets the kernel interrupt what the calling thread does for one request, as long as it lives: until the request is
/// answered.
class RequestInterrupt {
public:
    /// all: interrupts every request.
    RequestInterrupt(fuse_req_t request, std::shared_ptr<const foundation::InterruptSource> all);
    RequestInterrupt(const RequestInterrupt&) = delete;
    RequestInterrupt& operator=(const RequestInterrupt&) = delete;
    ~RequestInterrupt();

    bool isRequested() const noexcept { return m_source->isRequested(); }

private:
    fuse_req* const m_request;
    const std::shared_ptr<foundation::InterruptSource> m_source;
    const foundation::InterruptScope m_scope;
};

}  // namespace cloudfs::mount
