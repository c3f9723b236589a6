// SPDX-License-Identifier: Apache-2.0
#include "mount/RequestInterrupt.hpp"

#include <utility>

namespace cloudfs::mount {

RequestInterrupt::RequestInterrupt(fuse_req_t request, std::shared_ptr<const foundation::InterruptSource> all)
    : m_request(request), m_source(std::make_shared<foundation::InterruptSource>(std::move(all))), m_scope(m_source) {
    fuse_req_interrupt_func(
        m_request,
        [](fuse_req_t /*request*/, void* source) { static_cast<foundation::InterruptSource*>(source)->request(); },
        m_source.get());
}

// Waits for a call that is under way.
RequestInterrupt::~RequestInterrupt() {
    fuse_req_interrupt_func(m_request, nullptr, nullptr);
}

}  // namespace cloudfs::mount
