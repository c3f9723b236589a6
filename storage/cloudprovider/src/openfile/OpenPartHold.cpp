// SPDX-License-Identifier: Apache-2.0
#include "openfile/OpenPartHold.hpp"

#include "support/translateException.hpp"

#include <cassert>
#include <utility>

namespace storage::cloudprovider {

OpenPartHold::OpenPartHold(std::shared_ptr<OpenPartBuffer> part) : m_part(std::move(part)) {
    m_part->open();
}

OpenPartHold::OpenPartHold(std::shared_ptr<OpenPartBuffer> part, Adopted) noexcept : m_part(std::move(part)) {}

OpenPartHold::~OpenPartHold() {
    if (m_part) {
        try {
            close();
        } catch (...) {
            traceCaughtException();
        }
    }
}

OpenPartHold OpenPartHold::adopt(std::shared_ptr<OpenPartBuffer> part) {
    return {std::move(part), Adopted()};
}

bool OpenPartHold::close() {
    assert(m_part && "a hold is given up once");
    return std::exchange(m_part, nullptr)->close();
}

}  // namespace storage::cloudprovider
