// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/OpenFileContext.hpp"

#include <iosfwd>

namespace storage::cloudprovider {

/// Fetch a range of the version that a file is an edit of into memory, which has room for it. Whatever fails, the bytes
/// there are undefined.
///
/// Errors   what the client throws; ObjectReplacedException when the store has another version;
///          ResourceNotFoundException when the file has left its name and the store cannot tell what it held;
///          UnknownErrorException when the store delivers more bytes, or fewer.
void fetchRange(const OpenFileContext& context, const ObjectRange& range, char* data);

/// Likewise into sink, which begins at its position 0, tells the position, and takes no more bytes than those.
void fetchRange(const OpenFileContext& context, const ObjectRange& range, std::ostream& sink);

}  // namespace storage::cloudprovider
