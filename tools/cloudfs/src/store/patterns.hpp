// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>

#include <string>
#include <string_view>
#include <vector>

/// Patterns as the shell has them: * and ? stand for what is no "/", [...] for one character of a set.
namespace cloudfs {

/// The paths that texts stand for. Errors: as StorePath's.
std::vector<StorePath> toPaths(const std::vector<std::string>& texts);

/// Whether a text has a character that only a pattern has.
bool isPattern(std::string_view text);

/// Whether a name, with "/" between its components, fits a pattern; a "*" fits no "/".
bool matches(const std::string& pattern, const std::string& name);

/// The paths in their order, each that is a pattern replaced by the files and folders that fit it. A path that is there
/// as it stands is no pattern.
///
/// Errors   Failure when nothing fits a pattern, unless that is fine; Exception; OperationInterrupted.
enum class NothingFits { Fail, IsFine };
std::vector<StorePath> expandPatterns(const foundation::storage::provider::IProvider& provider,
                                      const std::vector<StorePath>& paths, NothingFits nothing = NothingFits::Fail);

}  // namespace cloudfs
