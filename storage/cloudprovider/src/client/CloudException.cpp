// SPDX-License-Identifier: Apache-2.0
#include "support/host.hpp"

#include <storage/cloudprovider/CloudException.hpp>

namespace storage::cloudprovider {

using host::ErrorCode;
using host::ExceptionContext;

CloudException::CloudException(const ExceptionContext& context)
    : CloudException(ErrorCode::Unknown, context, "Unknown Cloud error") {}

CloudException::CloudException(ErrorCode code, const ExceptionContext& context, std::string_view defaultMessage)
    : m_code(code),
      m_message(std::make_shared<std::string>(context.getMessage().empty() ? defaultMessage
                                                                           : std::string_view(context.getMessage()))) {}

const char* CloudException::what() const noexcept {
    return m_message->c_str();
}

ErrorCode CloudException::getErrorCode() const noexcept {
    return m_code;
}

FolderNotEmptyException::FolderNotEmptyException(const ExceptionContext& context)
    : CloudException(ErrorCode::FolderNotEmpty, context, "Cloud Folder was not empty") {}

InvalidLocationException::InvalidLocationException(const ExceptionContext& context)
    : CloudException(ErrorCode::InvalidLocation, context, "Invalid Cloud location") {}

// The host makes no difference between bad credentials and a denied permission.
InvalidCredentialsException::InvalidCredentialsException(const ExceptionContext& context)
    : CloudException(ErrorCode::PermissionDenied, context, "Invalid Cloud credentials") {}

PermissionDeniedException::PermissionDeniedException(const ExceptionContext& context)
    : CloudException(ErrorCode::PermissionDenied, context, "Cloud permission denied") {}

ResourceAlreadyExistsException::ResourceAlreadyExistsException(const ExceptionContext& context)
    : CloudException(ErrorCode::AlreadyExists, context, "Cloud Resource already exists") {}

ResourceNotFoundException::ResourceNotFoundException(const ExceptionContext& context)
    : CloudException(ErrorCode::NotFound, context, "Cloud Resource not found") {}

ResourceInUseException::ResourceInUseException(const ExceptionContext& context)
    : CloudException(ErrorCode::InUse, context, "Resource is in use") {}

UnsupportedOperationException::UnsupportedOperationException(const ExceptionContext& context)
    : CloudException(ErrorCode::Unsupported, context, "Unsupported Cloud operation") {}

UnknownErrorException::UnknownErrorException(const ExceptionContext& context)
    : CloudException(ErrorCode::Unknown, context, "Unknown Cloud error") {}

}  // namespace storage::cloudprovider
