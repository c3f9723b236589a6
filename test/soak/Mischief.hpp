// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Lap.hpp"

#include <string>
#include <vector>

namespace soak {

/// What the soak has to notice, done on purpose, to see that it does.
class Mischief {
public:
    /// Throws std::invalid_argument when kind is neither empty, for none, nor one of kinds.
    explicit Mischief(std::string kind);

    static std::vector<std::string> kinds();

    /// Do it, in the middle of a lap.
    void happen(const Lap& lap) const;

private:
    const std::string m_kind;
};

}  // namespace soak
