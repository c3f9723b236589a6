// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/ExecutionContext.hpp>

namespace foundation {

namespace {

thread_local bool t_isMainExecutionContext = false;

}  // namespace

bool isMainExecutionContext() noexcept {
    return t_isMainExecutionContext;
}

void setMainExecutionContext(bool active) noexcept {
    t_isMainExecutionContext = active;
}

}  // namespace foundation
