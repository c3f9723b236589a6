// SPDX-License-Identifier: Apache-2.0
#include <foundation/storage/provider/FolderEntry.hpp>

namespace foundation::storage::provider {

IFolderEntryIterator::~IFolderEntryIterator() = default;

}  // namespace foundation::storage::provider
