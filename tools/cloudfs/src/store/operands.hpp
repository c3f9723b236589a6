// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>

#include <cstdint>
#include <optional>
#include <string>

/// What the paths that a command was given mean in the store.
namespace cloudfs {

using foundation::storage::provider::IProvider;

/// Whether there is a file, which a path that can only mean a folder never means. Errors: Exception.
bool isFile(const IProvider& provider, const StorePath& path);

/// Whether only a folder can be meant, as there is no such file. Errors: Exception.
bool isFolder(const IProvider& provider, const StorePath& path);

/// Refuse a path that can only mean a folder. Errors: Failure.
void failIfMeansFolder(const StorePath& path);

/// Refuse a path where there is a folder, and no file. Errors: Failure, Exception.
void failIfFolder(const IProvider& provider, const StorePath& path);

/// The size of a file of the store, where the store tells it. Errors: Failure for a folder, Exception.
std::optional<std::uint64_t> sizeOf(const IProvider& provider, const StorePath& path);

/// Refuse a path that can only mean a folder, for a file without a name of its own. Errors: UsageError.
void failUnlessNameable(const StorePath& path, const std::string& name);

/// Refuse a path where there is no folder and none is written, for several files that go to it. Errors: Failure.
void failUnlessFolder(const IProvider& provider, const StorePath& path);

/// Where a file copied or moved to path goes: into the folder, if there is one or only one can be meant, else
/// to path itself. name is the file's own one. Errors: UsageError when it has none but needs one, Exception.
StorePath placeFor(const IProvider& provider, const StorePath& path, const std::string& name);

/// The folder that a folder copied or moved to path becomes: one of its name in an existing folder, or where only a
/// folder can be meant; else path itself. One without a name gives its content to path itself. Errors: Failure where
/// there is a file, Exception.
StorePath folderPlaceFor(const IProvider& provider, const StorePath& path, const std::string& name);

}  // namespace cloudfs
