// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace foundation::storage::provider {}

namespace storage::cloudprovider {

/// The host's interface, by the name that it has in all sources of this library. The public headers spell it out.
namespace host = foundation::storage::provider;

}  // namespace storage::cloudprovider
