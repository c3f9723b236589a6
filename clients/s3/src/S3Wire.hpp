// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ConnectionPool.hpp"
#include "CredentialKeeper.hpp"
#include "RetryPolicy.hpp"
#include "S3Address.hpp"
#include "s3Errors.hpp"

#include <foundation/threads/Mutex.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

namespace storage::cloudprovider::s3 {

/// One thing to ask of a store.
struct S3Request {
    /// Whether the answer's body has to be XML, which is no error even where the status says so.
    enum class Answer : std::uint8_t { Any, Xml };

    std::string Method;
    std::string Key;  ///< with the client's prefix; empty: the bucket itself
    Fields Query;
    Fields Headers;
    std::string Body;              ///< unless there is Data
    std::istream* Data = nullptr;  ///< Size bytes of it are the body; read once, when there is a connection
    std::uint64_t Size = 0;
    Answer Expected = Answer::Any;
    bool NeedsDigest = false;  ///< the store insists on a Content-MD5
    bool IsSlow = false;       ///< the store may work for long before it answers
    BodySink* Sink = nullptr;
    /// Called before the request is sent once more.
    std::function<void(S3Request&)> Renew;
};

/// What was asked for and done.
struct S3Answer {
    HttpResponse Http;
    bool MayHaveHappenedBefore = false;  ///< it took several tries, and not only the last may have had an effect
};

/// Requests and bytes so far, headers and all.
struct S3TrafficCount {
    std::atomic<std::uint64_t> Requests{0};
    std::atomic<std::uint64_t> Sent{0};
    std::atomic<std::uint64_t> Received{0};
};

/// Signs requests, sends them, and tries again what may succeed then. The only place that does.
///
/// A region, a clock or credentials that turn out to be wrong are corrected, and the request is sent again at once;
/// each once. Threads: any.
class S3Wire {
public:
    /// Values   options: completed ones.
    explicit S3Wire(const S3Options& options);

    /// Send a request until it succeeds.
    ///
    /// Errors   S3Failure; OperationInterrupted; what the request's sink and credentials throw.
    S3Answer send(S3Request request);

    const S3TrafficCount& traffic() const noexcept { return m_traffic; }
    bool goesToAws() const;
    /// The difference of the store's clock.
    std::chrono::system_clock::time_point storeTime() const;

private:
    // Where requests go; never changed, but replaced as a whole.
    struct Target {
        S3Address Address;
        std::string Region;
    };
    struct Detour {
        Origin Server;
        std::string Path;
    };
    // What was corrected for one request.
    struct Corrections {
        bool HasRegion = false;
        bool HasClock = false;
        bool HasCredentials = false;
        std::optional<Detour> Redirect;
    };

    HttpResponse tryOnce(ConnectionPool::Lease& connection, const S3Request& request, const Corrections& corrections);
    HttpResponse perform(ConnectionPool::Lease& connection, const S3Request& request, const Corrections& corrections);
    void checkAnswer(const S3Request& request, const HttpResponse& response);
    FailureDetails explainHead(ConnectionPool::Lease& connection, const S3Request& request,
                               const Corrections& corrections, FailureDetails failure);
    bool correct(const FailureDetails& failure, Corrections& corrections);
    bool correctRegion(const std::string& region);
    bool correctClock(const std::string& date);
    std::optional<Detour> followRedirect(const std::string& location) const;
    std::string withoutSecrets(std::string text);
    std::shared_ptr<const Target> target() const;

    // Set by the constructor, never changed.
    const S3Options m_options;
    const RetryPolicy m_retries;

    CredentialKeeper m_credentials;
    ConnectionPool m_connections;
    S3TrafficCount m_traffic;
    std::atomic<std::chrono::seconds::rep> m_clockOffset{0};
    std::atomic<bool> m_hasAnswered{false};
    std::atomic<bool> m_isBucketKnown{false};

    mutable foundation::Mutex m_mutex;
    std::shared_ptr<const Target> m_target CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

}  // namespace storage::cloudprovider::s3
