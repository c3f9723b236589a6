// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/InterruptState.hpp>

namespace storage::cloudprovider::test {

/// Makes the thread the one that a user interrupts, for as long as it lives; takes back what was requested meanwhile.
class ScopedMainContext {
public:
    ScopedMainContext() { foundation::setMainExecutionContext(true); }
    ScopedMainContext(const ScopedMainContext&) = delete;
    ScopedMainContext& operator=(const ScopedMainContext&) = delete;
    ~ScopedMainContext() {
        foundation::utInterruptState::ClearInterrupt();
        foundation::setMainExecutionContext(false);
    }
};

}  // namespace storage::cloudprovider::test
