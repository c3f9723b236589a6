// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <string>

namespace cloudfs::commands {

/// One line for people: the code's name, the path, the cause. Control characters are escaped.
std::string describe(const std::exception& failure);

}  // namespace cloudfs::commands
