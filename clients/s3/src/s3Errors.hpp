// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

namespace storage::cloudprovider::s3 {

/// What a store says of a failure, or what kept it from saying anything.
struct FailureDetails {
    long Status = 0;      ///< of HTTP; 0: there was no answer
    std::string Code;     ///< the store's, such as NoSuchKey; empty when it told none
    std::string Message;  ///< the store's, or what happened to the connection
    std::string RequestId;
    std::string Region;            ///< that the bucket is in, where the store named it
    std::string Location;          ///< where a redirect leads
    std::string Date;              ///< by the store's clock
    bool MayHaveHappened = false;  ///< this try, or one before it, may have done what was asked for
    bool MayHelpToRepeat = false;  ///< by the kind of failure
};

/// A request that failed for good, on its way to the client's edge, where it becomes a CloudException.
class S3Failure : public std::exception {
public:
    explicit S3Failure(FailureDetails details);

    /// Such as: 503 SlowDown: Please reduce your request rate (request 4442587FB7D0A2F9)
    const char* what() const noexcept override;

    const FailureDetails* operator->() const noexcept { return m_details.get(); }
    bool hasStatus(long status) const noexcept { return m_details->Status == status; }
    bool hasCode(const char* code) const noexcept { return m_details->Code == code; }
    /// An object that is missing; not a bucket or an upload.
    bool isAbsence() const noexcept;

private:
    std::shared_ptr<const FailureDetails> m_details;
    std::shared_ptr<const std::string> m_text;
};

/// What a store would say if it were asked for an object that is missing.
S3Failure noSuchObject();

/// An object is not the one that was expected. The text tells what became of it: "it was replaced meanwhile".
class ObjectChanged : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An edit would lose something of the object that is not its bytes. The text tells what.
class AttributesLost : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Whether to try a request again that failed so: connections that fail, 429, 500, 502, 503, 504, and what the store
/// names as passing.
bool isPassing(const FailureDetails& failure);

/// Throw the CloudException that fits. action: what failed, such as 'cannot get "a/b" in s3://bucket'.
[[noreturn]] void throwCloudException(const std::string& action, const S3Failure& cause);

}  // namespace storage::cloudprovider::s3
