// SPDX-License-Identifier: Apache-2.0
#include "ProviderStream.hpp"

#include "translateException.hpp"

#include <storage/cloudprovider/CloudException.hpp>

namespace storage::cloudprovider {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ByteStreamWriteFailure;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ExceptionContext;

void withProviderStream(ByteStream& stream, const std::function<void(ProviderStream&)>& operation) {
    auto* const own = dynamic_cast<ProviderStream*>(&stream);
    if (own == nullptr) {
        throw ByteStreamWriteFailure(ErrorCode::Unsupported,
                                     ExceptionContext("the stream belongs to another provider"));
    }
    try {
        operation(*own);
    } catch (const ByteStreamWriteFailure&) {
        throw;
    } catch (const CloudException& cause) {
        traceCaughtException();
        throw ByteStreamWriteFailure(cause.getErrorCode(), ExceptionContext(cause.what()));
    } catch (...) {
        traceCaughtException();
        throw ByteStreamWriteFailure(ErrorCode::Unknown, ExceptionContext(describeCurrentException()));
    }
}

}  // namespace storage::cloudprovider
