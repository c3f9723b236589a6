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
    /// Without a text.
    ExceptionContext() = default;
    /// With that text, in UTF-8.
    explicit ExceptionContext(std::string message) : m_message(std::move(message)) {}

    /// The text; empty when there is none.
    const std::string& getMessage() const noexcept { return m_message; }

private:
    std::string m_message;
};

/// Mixed into exceptions that know their ErrorCode, so that a boundary can keep the code without knowing the type.
class FOUNDATION_HOST_EXPORT ErrorCoded {
public:
    /// What kind of failure it is.
    virtual ErrorCode getErrorCode() const noexcept = 0;

protected:
    ErrorCoded() = default;                              ///< for exceptions that derive from it
    ErrorCoded(const ErrorCoded&) = default;             ///< as exceptions are copied
    ErrorCoded& operator=(const ErrorCoded&) = default;  ///< as exceptions are copied
    virtual ~ErrorCoded();
};

/// The failure of a provider's operation on one file or folder. Copying does not throw.
class FOUNDATION_HOST_EXPORT Exception : public std::exception, public ErrorCoded {
public:
    /// A failure with that code, of that file or folder, of unknown cause.
    Exception(const ErrorCode& code, const StorageIRI& iri);
    /// The same, with the text of its cause.
    Exception(const ErrorCode& code, const StorageIRI& iri, ExceptionContext context);

    /// What kind of failure it is.
    ErrorCode getErrorCode() const noexcept override;
    /// The file or folder that the operation was about.
    const StorageIRI& getIRI() const noexcept;
    /// The text of its cause.
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
    /// What kind of failure it is.
    ErrorCode getErrorCode() const noexcept override;
    /// The text of its cause.
    const ExceptionContext& getContext() const noexcept;

    /// "reading failed: NotFound: the cause"; without a cause the last part is left out.
    const char* what() const noexcept override;

protected:
    /// action: what failed, such as "reading".
    ByteStreamFailure(std::string_view action, ErrorCode code, ExceptionContext context);

private:
    struct Details;
    std::shared_ptr<const Details> m_details;
};

/// Reading from a stream failed.
class FOUNDATION_HOST_EXPORT ByteStreamReadFailure : public ByteStreamFailure {
public:
    /// With that code, and the text of its cause.
    explicit ByteStreamReadFailure(ErrorCode code, ExceptionContext context = {});
};

/// Writing to a stream failed.
class FOUNDATION_HOST_EXPORT ByteStreamWriteFailure : public ByteStreamFailure {
public:
    /// With that code, and the text of its cause.
    explicit ByteStreamWriteFailure(ErrorCode code, ExceptionContext context = {});
};

/// Moving a stream's position failed.
class FOUNDATION_HOST_EXPORT ByteStreamSeekFailure : public ByteStreamFailure {
public:
    /// With that code, and the text of its cause.
    explicit ByteStreamSeekFailure(ErrorCode code, ExceptionContext context = {});
};

/// Closing a stream failed: what was written may not be stored.
class FOUNDATION_HOST_EXPORT ByteStreamCloseFailure : public ByteStreamFailure {
public:
    /// With that code, and the text of its cause.
    explicit ByteStreamCloseFailure(ErrorCode code, ExceptionContext context = {});
};

}  // namespace foundation::storage::provider
