// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

namespace foundation::storage::provider {

/// Why an operation failed, as far as the host cares. The numbers are part of the contract with the host.
enum class ErrorCode : std::int32_t {
    FolderNotEmpty = 0,
    InvalidLocation = 1,
    PermissionDenied = 2,
    AlreadyExists = 3,
    NotFound = 4,
    InUse = 6,
    Unknown = 9,
    Unsupported = 11
};

/// The enumerator's name, such as "NotFound"; "Unknown" for a number that has none.
FOUNDATION_HOST_EXPORT std::string_view toString(ErrorCode code) noexcept;

/// What is known about a failure beside its code: the text of its cause. Empty when default-constructed.
class FOUNDATION_HOST_EXPORT ExceptionContext {
public:
    ExceptionContext() = default;
    explicit ExceptionContext(std::string message) : m_message(std::move(message)) {}

    const std::string& getMessage() const noexcept { return m_message; }

private:
    std::string m_message;
};

/// Mixed into exceptions that know their ErrorCode, so that a boundary can keep the code without knowing the type.
class FOUNDATION_HOST_EXPORT ErrorCoded {
public:
    virtual ErrorCode getErrorCode() const noexcept = 0;

protected:
    ErrorCoded() = default;
    ErrorCoded(const ErrorCoded&) = default;
    ErrorCoded& operator=(const ErrorCoded&) = default;
    virtual ~ErrorCoded();
};

/// The failure of a provider's operation on one file or folder. Copying does not throw.
class FOUNDATION_HOST_EXPORT Exception : public std::exception, public ErrorCoded {
public:
    Exception(const ErrorCode& code, const StorageIRI& iri);
    Exception(const ErrorCode& code, const StorageIRI& iri, ExceptionContext context);

    ErrorCode getErrorCode() const noexcept override;
    const StorageIRI& getIRI() const noexcept;
    const ExceptionContext& getContext() const noexcept;

    /// "NotFound: /a/b.txt: the cause", in UTF-8; without a cause the last part is left out.
    const char* what() const noexcept override;

private:
    struct Details;
    std::shared_ptr<const Details> m_details;
};

/// What the failures of a byte stream have in common. Copying does not throw.
class FOUNDATION_HOST_EXPORT ByteStreamFailure : public std::exception, public ErrorCoded {
public:
    ErrorCode getErrorCode() const noexcept override;
    const ExceptionContext& getContext() const noexcept;

    /// "reading failed: NotFound: the cause"; without a cause the last part is left out.
    const char* what() const noexcept override;

protected:
    ByteStreamFailure(std::string_view action, ErrorCode code, ExceptionContext context);

private:
    struct Details;
    std::shared_ptr<const Details> m_details;
};

class FOUNDATION_HOST_EXPORT ByteStreamReadFailure : public ByteStreamFailure {
public:
    explicit ByteStreamReadFailure(ErrorCode code, ExceptionContext context = {});
};

class FOUNDATION_HOST_EXPORT ByteStreamWriteFailure : public ByteStreamFailure {
public:
    explicit ByteStreamWriteFailure(ErrorCode code, ExceptionContext context = {});
};

class FOUNDATION_HOST_EXPORT ByteStreamSeekFailure : public ByteStreamFailure {
public:
    explicit ByteStreamSeekFailure(ErrorCode code, ExceptionContext context = {});
};

class FOUNDATION_HOST_EXPORT ByteStreamCloseFailure : public ByteStreamFailure {
public:
    explicit ByteStreamCloseFailure(ErrorCode code, ExceptionContext context = {});
};

}  // namespace foundation::storage::provider
