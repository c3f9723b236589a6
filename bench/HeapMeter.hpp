// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>

/// Knows the size of the heap at every moment. Linking it into a program puts a count around malloc and its
/// kin, whoever calls them: operator new, C libraries, shared ones too. Mapped files do not count.
namespace bench {

/// Bytes by which the heap grew while the call ran, at the most, beyond what it held before.
std::size_t measureHeapGrowth(const std::function<void()>& call);

}  // namespace bench
