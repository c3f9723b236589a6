// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/Engine.hpp"
#include "context/OpenFileContext.hpp"
#include "reading/RangesAhead.hpp"
#include "support/host.hpp"

#include <foundation/storage/provider/ByteStream.hpp>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <ios>
#include <memory>

namespace storage::cloudprovider {

/// A stream that reads an object as it is stored, once from its beginning to its end; see openSequentialReader. Used by
/// one thread at a time.
class SequentialReader : public host::ByteStream {
public:
    /// Look the object up. ResourceNotFoundException when there is none.
    SequentialReader(std::shared_ptr<OpenFileContext> context, const Engine& engine);
    ~SequentialReader() override;

private:
    std::int64_t doRead(char* buffer, std::int64_t count) override;
    std::int64_t doWrite(const char* data, std::int64_t count) override;
    std::streampos doSeek(std::int64_t offset, std::ios_base::seekdir way) override;
    void doClose() override;

    std::size_t copyBytes(char* buffer, std::size_t most);

    std::exception_ptr m_failure;           // of a read that had got some bytes already
    std::shared_ptr<RangesAhead> m_ranges;  // empty once it is closed
};

}  // namespace storage::cloudprovider
