// SPDX-License-Identifier: Apache-2.0
#include <foundation/storage/provider/Exception.hpp>

#include <utility>

namespace foundation::storage::provider {

namespace {

void appendCause(std::string& text, const ExceptionContext& context) {
    if (!context.getMessage().empty()) {
        text.append(": ").append(context.getMessage());
    }
}

std::string describe(ErrorCode code, const StorageIRI& iri, const ExceptionContext& context) {
    std::string text(toString(code));
    text.append(": ").append(iri.toDisplayText());
    appendCause(text, context);
    return text;
}

std::string describe(std::string_view action, ErrorCode code, const ExceptionContext& context) {
    std::string text(action);
    text.append(" failed: ").append(toString(code));
    appendCause(text, context);
    return text;
}

}  // namespace

std::string_view toString(ErrorCode code) noexcept {
    switch (code) {
        case ErrorCode::FolderNotEmpty:
            return "FolderNotEmpty";
        case ErrorCode::InvalidLocation:
            return "InvalidLocation";
        case ErrorCode::PermissionDenied:
            return "PermissionDenied";
        case ErrorCode::AlreadyExists:
            return "AlreadyExists";
        case ErrorCode::NotFound:
            return "NotFound";
        case ErrorCode::InUse:
            return "InUse";
        case ErrorCode::Unsupported:
            return "Unsupported";
        case ErrorCode::Unknown:
            break;
    }
    return "Unknown";
}

ErrorCoded::~ErrorCoded() = default;

struct Exception::Details {
    ErrorCode code;
    StorageIRI iri;
    ExceptionContext context;
    std::string text;
};

Exception::Exception(const ErrorCode& code, const StorageIRI& iri) : Exception(code, iri, ExceptionContext()) {}

Exception::Exception(const ErrorCode& code, const StorageIRI& iri, ExceptionContext context) {
    auto text = describe(code, iri, context);
    m_details = std::make_shared<Details>(Details{code, iri, std::move(context), std::move(text)});
}

ErrorCode Exception::getErrorCode() const noexcept {
    return m_details->code;
}

const StorageIRI& Exception::getIRI() const noexcept {
    return m_details->iri;
}

const ExceptionContext& Exception::getContext() const noexcept {
    return m_details->context;
}

const char* Exception::what() const noexcept {
    return m_details->text.c_str();
}

struct ByteStreamFailure::Details {
    ErrorCode code;
    ExceptionContext context;
    std::string text;
};

ByteStreamFailure::ByteStreamFailure(std::string_view action, ErrorCode code, ExceptionContext context) {
    auto text = describe(action, code, context);
    m_details = std::make_shared<Details>(Details{code, std::move(context), std::move(text)});
}

ErrorCode ByteStreamFailure::getErrorCode() const noexcept {
    return m_details->code;
}

const ExceptionContext& ByteStreamFailure::getContext() const noexcept {
    return m_details->context;
}

const char* ByteStreamFailure::what() const noexcept {
    return m_details->text.c_str();
}

ByteStreamReadFailure::ByteStreamReadFailure(ErrorCode code, ExceptionContext context)
    : ByteStreamFailure("reading", code, std::move(context)) {}

ByteStreamWriteFailure::ByteStreamWriteFailure(ErrorCode code, ExceptionContext context)
    : ByteStreamFailure("writing", code, std::move(context)) {}

ByteStreamSeekFailure::ByteStreamSeekFailure(ErrorCode code, ExceptionContext context)
    : ByteStreamFailure("seeking", code, std::move(context)) {}

ByteStreamCloseFailure::ByteStreamCloseFailure(ErrorCode code, ExceptionContext context)
    : ByteStreamFailure("closing", code, std::move(context)) {}

}  // namespace foundation::storage::provider
