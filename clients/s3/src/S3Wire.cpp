// SPDX-License-Identifier: Apache-2.0
#include "S3Wire.hpp"

#include "digests.hpp"
#include "s3Xml.hpp"
#include "text.hpp"

#include <boost/date_time/posix_time/conversion.hpp>

#include <istream>
#include <utility>

namespace storage::cloudprovider::s3 {

namespace {

using SystemClock = std::chrono::system_clock;

constexpr std::string_view kUnsigned = "UNSIGNED-PAYLOAD";
// A server that never answered is more likely misspelt than restarting.
constexpr unsigned kTriesOfUnknownServer = 3;

bool hasBody(const S3Request& request) {
    return request.Method == "PUT" || request.Method == "POST";
}

void readBody(S3Request& request) {
    if (request.Data == nullptr) {
        return;
    }
    request.Body.resize(static_cast<std::size_t>(request.Size));
    request.Data->read(request.Body.data(), static_cast<std::streamsize>(request.Size));
    if (static_cast<std::uint64_t>(request.Data->gcount()) != request.Size) {
        FailureDetails failure;
        failure.Message = "the data ends after " + std::to_string(request.Data->gcount()) + " of " +
                          std::to_string(request.Size) + " bytes";
        throw S3Failure(std::move(failure));
    }
    request.Data = nullptr;
}

bool isSigned(const std::string& lowerName) {
    return lowerName == "host" || lowerName == "content-md5" || lowerName == "content-type" ||
           lowerName.starts_with("x-amz-");
}

FailureDetails toDetails(const HttpResponse& response) {
    FailureDetails details;
    try {
        details = response.Body.empty() ? FailureDetails() : readError(response.Body).value_or(FailureDetails());
    } catch (const std::runtime_error&) {
        details.Message = "the answer is not the store's";  // a proxy's page, most likely
    }
    details.Status = response.Status;
    details.RequestId = details.RequestId.empty() ? response.header("x-amz-request-id") : details.RequestId;
    details.Region = details.Region.empty() ? response.header("x-amz-bucket-region") : details.Region;
    details.Location = response.header("location");
    details.Date = response.header("date");
    details.MayHaveHappened = response.Status >= 500 && response.Status != 501;
    return details;
}

void replaceAll(std::string& text, const std::string& secret) {
    for (auto at = secret.empty() ? text.npos : text.find(secret); at != text.npos; at = text.find(secret, at)) {
        text.replace(at, secret.size(), "*");
    }
}

}  // namespace

S3Wire::S3Wire(const S3Options& options)
    : m_options(options),
      m_retries{options.MostTries, RetryPolicy().FirstBound, options.LongestWait},
      m_credentials(options),
      m_connections({options.CaFile, options.VerifyTls, options.ConnectTimeout, options.StallTimeout},
                    options.Connections),
      m_target(std::make_shared<Target>(Target{S3Address(options), options.Region})) {}

S3Answer S3Wire::send(S3Request request) {
    auto connection = m_connections.lease();
    readBody(request);
    Corrections corrections;
    bool mayHaveHappened = false;
    for (unsigned tries = 1;; ++tries) {
        try {
            auto response = tryOnce(connection, request, corrections);
            return {std::move(response), mayHaveHappened || connection->sends() > 1};
        } catch (const S3Failure& failure) {
            mayHaveHappened = mayHaveHappened || failure->MayHaveHappened || connection->sends() > 1;
            auto details = *failure.operator->();
            if (!correct(details, corrections)) {
                const bool isHopeless = !m_hasAnswered && !mayHaveHappened && tries >= kTriesOfUnknownServer;
                if (isHopeless || !isPassing(details) || !m_retries.waitAfter(tries)) {
                    details.MayHaveHappened = mayHaveHappened;
                    throw S3Failure(std::move(details));
                }
            }
        }
        if (request.Renew) {
            request.Renew(request);
        }
    }
}

HttpResponse S3Wire::tryOnce(ConnectionPool::Lease& connection, const S3Request& request,
                             const Corrections& corrections) {
    try {
        auto response = perform(connection, request, corrections);
        m_hasAnswered = true;
        if (response.Status / 100 == 2) {
            checkAnswer(request, response);
            m_isBucketKnown = true;
            return response;
        }
        auto failure = toDetails(response);
        if (request.Method == "HEAD") {
            failure = explainHead(connection, request, corrections, std::move(failure));
        }
        failure.Message = withoutSecrets(std::move(failure.Message));
        throw S3Failure(std::move(failure));
    } catch (const TransportFailure& failure) {
        FailureDetails details;
        details.Message = failure.what();
        details.MayHaveHappened = failure.mayHaveReached();
        details.MayHelpToRepeat = failure.mayHelpToRepeat();
        throw S3Failure(std::move(details));
    }
}

// A 200 may turn out to be an error in the end: the store sends its headers before it works (AWS S3 API reference,
// CompleteMultipartUpload and CopyObject).
void S3Wire::checkAnswer(const S3Request& request, const HttpResponse& response) {
    if (request.Expected != S3Request::Answer::Xml) {
        return;
    }
    std::optional<FailureDetails> error;
    try {
        error = readError(response.Body);
    } catch (const std::runtime_error& malformed) {
        throw TransportFailure(malformed.what(), TransportFailure::Reached::Maybe, TransportFailure::Repeat::MayHelp);
    }
    if (error) {
        auto failure = toDetails(response);
        failure.MayHaveHappened = true;
        failure.Message = withoutSecrets(std::move(failure.Message));
        throw S3Failure(std::move(failure));
    }
}

HttpResponse S3Wire::perform(ConnectionPool::Lease& connection, const S3Request& request,
                             const Corrections& corrections) {
    const auto current = target();
    const auto& origin = corrections.Redirect ? corrections.Redirect->Server : current->Address.origin();
    auto path = origin.Path;
    if (corrections.Redirect) {
        path = corrections.Redirect->Path;
    } else if (!request.Key.empty() || path.empty()) {
        path += '/' + percentEncode(request.Key, Slash::Keep);
    }

    auto headers = request.Headers;
    headers.emplace_back("Host", origin.Host);
    headers.emplace_back("User-Agent", "cloudprovider");
    if (m_options.RequesterPays) {
        headers.emplace_back("x-amz-request-payer", "requester");
    }
    if ((origin.IsTls || request.NeedsDigest) && !request.Body.empty()) {
        headers.emplace_back("Content-MD5", toBase64(md5(request.Body)));
    }
    if (const auto credentials = m_credentials.get()) {
        const auto date = toAmzDate(storeTime());
        const auto hash = origin.IsTls && hasBody(request) ? std::string(kUnsigned) : toHex(sha256(request.Body));
        headers.emplace_back("x-amz-date", date);
        headers.emplace_back("x-amz-content-sha256", hash);
        if (!credentials->SessionToken.empty()) {
            headers.emplace_back("x-amz-security-token", credentials->SessionToken);
        }
        SignedParts parts{request.Method, path, request.Query, {}, hash};
        for (const auto& header : headers) {
            if (isSigned(toLower(header.first))) {
                parts.Headers.push_back(header);
            }
        }
        headers.emplace_back("Authorization", makeAuthorization(parts, *credentials, date, current->Region));
    }

    HttpRequest http{request.Method, (origin.IsTls ? "https://" : "http://") + origin.Host + path, std::move(headers),
                     request.Body, request.IsSlow ? m_options.AnswerTimeout : std::chrono::milliseconds(0)};
    if (!request.Query.empty()) {
        http.Url += '?' + toQueryString(request.Query);
    }
    const auto count = [&] {
        m_traffic.Requests += connection->sends();
        m_traffic.Sent += connection->traffic().Sent;
        m_traffic.Received += connection->traffic().Received;
    };
    try {
        auto response = connection->perform(http, request.Sink);
        count();
        return response;
    } catch (...) {
        count();
        throw;
    }
}

// The answer to a HEAD has no body, and so no code: where that matters, the same is asked with a GET of one byte.
FailureDetails S3Wire::explainHead(ConnectionPool::Lease& connection, const S3Request& request,
                                   const Corrections& corrections, FailureDetails failure) {
    const bool isPlain = failure.Status == 412 || failure.Status == 304 || isPassing(failure) ||
                         !failure.Region.empty() || (failure.Status == 404 && m_isBucketKnown);
    if (isPlain) {
        return failure;
    }
    auto question = request;
    question.Method = "GET";
    question.Headers.emplace_back("Range", "bytes=0-0");
    question.Sink = nullptr;
    const auto response = perform(connection, question, corrections);
    if (response.Status / 100 == 2 || response.Status == 416) {
        failure.MayHelpToRepeat = true;  // it has come meanwhile
        return failure;
    }
    m_isBucketKnown = m_isBucketKnown || (response.Status == 404 && toDetails(response).Code != "NoSuchBucket");
    return toDetails(response);
}

bool S3Wire::correct(const FailureDetails& failure, Corrections& corrections) {
    if (failure.Status == 307 && !corrections.Redirect) {
        corrections.Redirect = followRedirect(failure.Location);
        return corrections.Redirect.has_value();
    }
    const bool isElsewhere = failure.Status == 301 || failure.Status == 400 || failure.Status == 403;
    if (isElsewhere && !failure.Region.empty() && !std::exchange(corrections.HasRegion, true) &&
        correctRegion(failure.Region)) {
        return true;
    }
    if (failure.Code == "RequestTimeTooSkewed" && !std::exchange(corrections.HasClock, true)) {
        return correctClock(failure.Date);
    }
    const bool isOld = failure.Code == "ExpiredToken" || failure.Code == "TokenRefreshRequired";
    return isOld && !std::exchange(corrections.HasCredentials, true) && m_credentials.renew();
}

bool S3Wire::correctRegion(const std::string& region) {
    const foundation::MutexLock lock(m_mutex);
    if (m_target->Region == region) {
        return false;
    }
    auto options = m_options;
    options.Region = region;
    m_target = std::make_shared<Target>(Target{S3Address(options), region});
    return true;
}

bool S3Wire::correctClock(const std::string& date) {
    const auto storesTime = toTime(date);
    if (storesTime.is_special()) {
        return false;
    }
    const auto now = SystemClock::to_time_t(SystemClock::now());
    m_clockOffset = boost::posix_time::to_time_t(storesTime) - now;
    return true;
}

std::optional<S3Wire::Detour> S3Wire::followRedirect(const std::string& location) const {
    const auto plain = location.substr(0, location.find('?'));
    try {
        auto server = parseOrigin(plain);
        if (!target()->Address.maySendOnTo(server)) {
            return std::nullopt;
        }
        const auto path = plain.find('/', plain.find("://") + 3);
        return Detour{std::move(server), path == plain.npos ? "/" : plain.substr(path)};
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Stores repeat what they were sent; not all of it is for others to see.
std::string S3Wire::withoutSecrets(std::string text) {
    if (const auto credentials = m_credentials.get()) {
        for (const auto& secret : {credentials->SecretKey, credentials->SessionToken, credentials->AccessKey}) {
            replaceAll(text, secret);
        }
    }
    return text;
}

std::shared_ptr<const S3Wire::Target> S3Wire::target() const {
    const foundation::MutexLock lock(m_mutex);
    return m_target;
}

bool S3Wire::goesToAws() const {
    return target()->Address.isAws();
}

SystemClock::time_point S3Wire::storeTime() const {
    return SystemClock::now() + std::chrono::seconds(m_clockOffset);
}

}  // namespace storage::cloudprovider::s3
