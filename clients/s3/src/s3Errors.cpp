// SPDX-License-Identifier: Apache-2.0
#include "s3Errors.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace storage::cloudprovider::s3 {

using foundation::storage::provider::ExceptionContext;

namespace {

bool isOneOf(std::string_view code, std::initializer_list<std::string_view> codes) {
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

std::string describe(const FailureDetails& failure) {
    std::string text = failure.Status == 0 ? "" : std::to_string(failure.Status);
    for (const auto* const word : {&failure.Code, &failure.Message}) {
        if (!word->empty()) {
            text += (text.empty() ? "" : word == &failure.Code ? " " : ": ") + *word;
        }
    }
    return text + (failure.RequestId.empty() ? "" : " (request " + failure.RequestId + ")");
}

}  // namespace

S3Failure::S3Failure(FailureDetails details)
    : m_details(std::make_shared<FailureDetails>(std::move(details))),
      m_text(std::make_shared<std::string>(describe(*m_details))) {}

const char* S3Failure::what() const noexcept {
    return m_text->c_str();
}

bool S3Failure::isAbsence() const noexcept {
    return hasStatus(404) && !hasCode("NoSuchBucket") && !hasCode("NoSuchUpload");
}

S3Failure noSuchObject() {
    FailureDetails failure;
    failure.Status = 404;
    failure.Message = "there is no such object";
    return S3Failure(std::move(failure));
}

bool isPassing(const FailureDetails& failure) {
    if (isOneOf(failure.Code, {"QuotaExceeded", "InvalidObjectState"})) {
        return false;
    }
    const auto statuses = {429L, 500L, 502L, 503L, 504L};
    return failure.MayHelpToRepeat || std::find(statuses.begin(), statuses.end(), failure.Status) != statuses.end() ||
           isOneOf(failure.Code, {"SlowDown", "RequestTimeout", "InternalError", "ServiceUnavailable",
                                  "ConditionalRequestConflict", "OperationAborted", "BadDigest", "IncompleteBody"});
}

void throwCloudException(const std::string& action, const S3Failure& cause) {
    const auto& code = cause->Code;
    const auto text = action + ": " + cause.what();
    const ExceptionContext context(text);
    if (isOneOf(code, {"NoSuchBucket", "InvalidBucketName", "KeyTooLongError", "InvalidURI"})) {
        throw InvalidLocationException(context);
    }
    if (code == "RequestTimeTooSkewed") {
        throw InvalidCredentialsException(ExceptionContext(text + "; this machine's clock differs from the store's"));
    }
    if (cause->Status == 401 || isOneOf(code, {"InvalidAccessKeyId", "SignatureDoesNotMatch", "ExpiredToken",
                                               "InvalidToken", "TokenRefreshRequired"})) {
        throw InvalidCredentialsException(context);
    }
    if (isOneOf(code, {"NoSuchUpload", "QuotaExceeded", "InvalidObjectState"})) {
        throw UnknownErrorException(context);
    }
    switch (cause->Status) {
        case 403:
            throw PermissionDeniedException(context);
        case 404:
            throw ResourceNotFoundException(context);
        case 409:
        case 412:
            throw ResourceInUseException(context);
        case 501:
            throw UnsupportedOperationException(context);
        default:
            throw UnknownErrorException(context);
    }
}

}  // namespace storage::cloudprovider::s3
