// SPDX-License-Identifier: Apache-2.0
#include "reading/SequentialReader.hpp"

#include "reading/describeStart.hpp"
#include "support/Trace.hpp"

#include <boost/numeric/conversion/cast.hpp>

#include <string>
#include <utility>

namespace storage::cloudprovider {

using host::ErrorCode;
using host::ExceptionContext;

SequentialReader::SequentialReader(std::shared_ptr<OpenFileContext> context, const Engine& engine) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const auto start = describeStart(*context);
    m_ranges = std::make_shared<RangesAhead>(std::move(context), engine, start.size, start.bytes);
}

SequentialReader::~SequentialReader() {
    SequentialReader::doClose();
}

// Ranges that were left are not there any more: a read that fails in the middle cannot be tried again.
std::int64_t SequentialReader::doRead(char* buffer, std::int64_t count) {
    CLOUDPROVIDER_TRACE_FUNCTION(" n=", count);
    const auto wanted = boost::numeric_cast<std::size_t>(count);
    if (!m_ranges) {
        throw host::ByteStreamReadFailure(ErrorCode::Unknown, ExceptionContext("the stream is closed"));
    }
    if (m_failure) {
        std::rethrow_exception(m_failure);
    }
    std::size_t total = 0;
    bool isAtEnd = false;
    try {
        while (total < wanted && !isAtEnd) {
            const auto taken = copyBytes(buffer + total, wanted - total);
            total += taken;
            isAtEnd = taken == 0;
        }
    } catch (...) {
        if (total != 0) {
            m_failure = std::current_exception();
        }
        throw;
    }
    const std::int64_t bytesRead = isAtEnd && total == 0 ? -1 : static_cast<std::int64_t>(total);
    CLOUDPROVIDER_TRACE_VALUES("bytesRead", '=', bytesRead);
    return bytesRead;
}

// As many as there are in one piece; none at the end.
std::size_t SequentialReader::copyBytes(char* buffer, std::size_t most) {
    const auto count = m_ranges->bytes().copy(buffer, most);
    m_ranges->use(count);
    return count;
}

std::int64_t SequentialReader::doWrite(const char* /*data*/, std::int64_t /*count*/) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    throw host::ByteStreamWriteFailure(ErrorCode::PermissionDenied,
                                       ExceptionContext("the stream is open for reading only"));
}

std::streampos SequentialReader::doSeek(std::int64_t /*offset*/, std::ios_base::seekdir /*way*/) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    throw host::ByteStreamSeekFailure(ErrorCode::Unsupported, ExceptionContext("the stream reads sequentially"));
}

void SequentialReader::doClose() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    if (const auto ranges = std::move(m_ranges)) {
        ranges->stop();
    }
}

}  // namespace storage::cloudprovider
