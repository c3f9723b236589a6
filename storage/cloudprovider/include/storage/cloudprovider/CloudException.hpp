// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/Exception.hpp>
#include <storage/cloudprovider/export.hpp>

#include <exception>
#include <memory>
#include <string>
#include <string_view>

namespace storage::cloudprovider {

/// A failure of the store or of an operation on it, before it is put into the host's terms.
///
/// Clients throw the subclass that fits; its getErrorCode is the code that the host will see:
///
/// | what the store says | exception |
/// |---|---|
/// | there is no such object (but an answer that can say "nothing" does) | ResourceNotFoundException |
/// | it takes no such name: too long, not its characters; there is no such bucket | InvalidLocationException |
/// | it does not know who asks: wrong, missing or expired keys | InvalidCredentialsException |
/// | it knows, and refuses; it is read only | PermissionDeniedException |
/// | another version is stored than was expected; it stays locked or busy after all tries | ResourceInUseException |
/// | it can never do that, for anybody | UnsupportedOperationException |
/// | anything else: full, damaged, broken off, a range or an upload that is not there | UnknownErrorException |
///
/// FolderNotEmptyException and ResourceAlreadyExistsException are the provider's own. What is no CloudException has the
/// code Unknown, or the one that it carries, as an interrupt has.
///
/// The text is for people. It names the step, the key and the store's own words, and never credentials or an object's
/// bytes; nobody branches on it. Copying does not throw.
class CLOUDPROVIDER_EXPORT CloudException : public std::exception, public foundation::storage::provider::ErrorCoded {
public:
    /// The message is the context's.
    explicit CloudException(const foundation::storage::provider::ExceptionContext& context);

    /// The message, in UTF-8.
    const char* what() const noexcept override;

    /// Unknown, unless a subclass knows better.
    foundation::storage::provider::ErrorCode getErrorCode() const noexcept override;

protected:
    /// For subclasses: with that code, and defaultMessage where the context has none.
    CloudException(foundation::storage::provider::ErrorCode code,
                   const foundation::storage::provider::ExceptionContext& context, std::string_view defaultMessage);

private:
    foundation::storage::provider::ErrorCode m_code;
    std::shared_ptr<const std::string> m_message;
};

/// A folder that must be empty is not. Like every subclass here, it has a message of its own for an empty context.
class CLOUDPROVIDER_EXPORT FolderNotEmptyException : public CloudException {
public:
    /// With the context's message, or one of its own.
    explicit FolderNotEmptyException(const foundation::storage::provider::ExceptionContext& context = {});
};

/// The store does not take such a name or place.
class CLOUDPROVIDER_EXPORT InvalidLocationException : public CloudException {
public:
    /// With the context's message, or one of its own.
    explicit InvalidLocationException(const foundation::storage::provider::ExceptionContext& context = {});
};

/// The store does not know who is asking. The host sees the same code as for a denied permission.
class CLOUDPROVIDER_EXPORT InvalidCredentialsException : public CloudException {
public:
    /// With the context's message, or one of its own.
    explicit InvalidCredentialsException(const foundation::storage::provider::ExceptionContext& context = {});
};

/// The store knows who is asking, and refuses.
class CLOUDPROVIDER_EXPORT PermissionDeniedException : public CloudException {
public:
    /// With the context's message, or one of its own.
    explicit PermissionDeniedException(const foundation::storage::provider::ExceptionContext& context = {});
};

/// What is to be created is there.
class CLOUDPROVIDER_EXPORT ResourceAlreadyExistsException : public CloudException {
public:
    /// With the context's message, or one of its own.
    explicit ResourceAlreadyExistsException(const foundation::storage::provider::ExceptionContext& context = {});
};

/// What is asked for is not there.
class CLOUDPROVIDER_EXPORT ResourceNotFoundException : public CloudException {
public:
    /// With the context's message, or one of its own.
    explicit ResourceNotFoundException(const foundation::storage::provider::ExceptionContext& context = {});
};

/// What is to be changed is open or locked elsewhere, or is not the version that was expected.
class CLOUDPROVIDER_EXPORT ResourceInUseException : public CloudException {
public:
    /// With the context's message, or one of its own.
    explicit ResourceInUseException(const foundation::storage::provider::ExceptionContext& context = {});
};

/// The store cannot do this at all.
class CLOUDPROVIDER_EXPORT UnsupportedOperationException : public CloudException {
public:
    /// With the context's message, or one of its own.
    explicit UnsupportedOperationException(const foundation::storage::provider::ExceptionContext& context = {});
};

/// Anything else.
class CLOUDPROVIDER_EXPORT UnknownErrorException : public CloudException {
public:
    /// With the context's message, or one of its own.
    explicit UnknownErrorException(const foundation::storage::provider::ExceptionContext& context = {});
};

}  // namespace storage::cloudprovider
