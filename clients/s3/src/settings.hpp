// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/s3/S3Options.hpp>

#include <functional>
#include <optional>
#include <string>

namespace storage::cloudprovider::s3 {

/// Looks up an environment variable; nothing when it is not set.
using Lookup = std::function<std::optional<std::string>(const std::string& name)>;

/// Complete options by the environment and the profile's files: afterwards the region is set, the endpoint unless it is
/// AWS's own, and credentials, a source of them, or Anonymous.
///
/// Errors   InvalidLocationException, InvalidCredentialsException: the text names the setting, not its value.
S3Options completeOptions(S3Options options, const Lookup& environment);

/// The environment of this process.
Lookup processEnvironment();

}  // namespace storage::cloudprovider::s3
