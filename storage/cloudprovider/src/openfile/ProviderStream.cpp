// SPDX-License-Identifier: Apache-2.0
#include "openfile/ProviderStream.hpp"

#include "support/host.hpp"
#include "support/translateException.hpp"

#include <storage/cloudprovider/CloudException.hpp>

namespace storage::cloudprovider {

using host::ByteStreamWriteFailure;
using host::ExceptionContext;

void withProviderStream(host::ByteStream& stream, const std::function<void(ProviderStream&)>& operation) {
    auto* const own = dynamic_cast<ProviderStream*>(&stream);
    if (own == nullptr) {
        throw ByteStreamWriteFailure(host::ErrorCode::Unsupported,
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
        throw ByteStreamWriteFailure(host::ErrorCode::Unknown, ExceptionContext(describeCurrentException()));
    }
}

}  // namespace storage::cloudprovider
