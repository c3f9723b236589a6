// SPDX-License-Identifier: Apache-2.0
#include "support/translateException.hpp"

#include "support/Trace.hpp"
#include "support/host.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <exception>

namespace storage::cloudprovider {

using host::ErrorCode;
using host::Exception;

namespace {

template <typename Handler>
auto withRecordedException(const std::exception_ptr& recorded, Handler handler) {
    try {
        std::rethrow_exception(recorded);
    } catch (...) {
        return handler();
    }
}

std::string diagnosticText() {
    auto text = describeCurrentException();
    return text.empty() ? "No diagnostic information available." : text;
}

}  // namespace

void translateException(const host::StorageIRI& iri) {
    try {
        throw;
    } catch (const Exception&) {
        throw;
    } catch (const CloudException& cause) {
        throw Exception(cause.getErrorCode(), iri, host::ExceptionContext(cause.what()));
    } catch (const std::exception& cause) {
        throw Exception(ErrorCode::Unknown, iri, host::ExceptionContext(cause.what()));
    } catch (const std::exception_ptr& recorded) {
        if (recorded) {
            withRecordedException(recorded, [&] { translateException(iri); });
        }
        throw Exception(ErrorCode::Unknown, iri);
    } catch (...) {
        throw Exception(ErrorCode::Unknown, iri);
    }
}

std::string describeCurrentException() {
    try {
        throw;
    } catch (const std::exception& cause) {
        return cause.what();
    } catch (const std::exception_ptr& recorded) {
        return recorded ? withRecordedException(recorded, [] { return describeCurrentException(); }) : std::string();
    } catch (...) {
        return {};
    }
}

void traceCaughtException() noexcept {
    try {
        CLOUDPROVIDER_TRACE(trace::kCaughtException, "Exception caught: ", diagnosticText());
    } catch (...) {  // NOLINT(bugprone-empty-catch): a record that cannot be made is lost, nothing else
    }
}

}  // namespace storage::cloudprovider
