// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "QuickAcks.hpp"
#include "signing.hpp"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace storage::cloudprovider::s3 {

/// How every request of a client travels.
struct HttpSettings {
    std::string CaFile;  ///< empty: the system's
    bool VerifyTls = true;
    std::chrono::milliseconds ConnectTimeout{};
    std::chrono::milliseconds StallTimeout{};
};

struct HttpRequest {
    std::string Method;
    std::string Url;
    Fields Headers;
    std::string_view Body;  ///< sent with PUT and POST, also when it is empty
    /// How long the answer may take once the body is sent.
    std::chrono::milliseconds AnswerTimeout{};
};

struct HttpResponse {
    long Status = 0;
    std::map<std::string, std::string> Headers;  ///< names in lower case; of several the last
    std::string Body;                            ///< unless a sink took it

    /// A header's value, trimmed; empty when there is none.
    const std::string& header(const std::string& lowerName) const;
};

/// What a request took on the wire, headers and all, in bytes.
struct HttpTraffic {
    std::uint64_t Sent = 0;
    std::uint64_t Received = 0;
};

/// Takes the body of a successful answer as it arrives. What it throws breaks the transfer off and comes out of it.
class BodySink {
public:
    BodySink() = default;
    BodySink(const BodySink&) = delete;
    BodySink& operator=(const BodySink&) = delete;
    virtual ~BodySink() = default;

    /// The headers are complete; the body, if there is one, comes next.
    virtual void begin(const HttpResponse& response) = 0;
    virtual void write(std::string_view bytes) = 0;
};

/// A request that got no answer, or not all of it.
class TransportFailure : public std::runtime_error {
public:
    enum class Reached : std::uint8_t { No, Maybe };  ///< whether the store may have done what it was asked for
    enum class Repeat : std::uint8_t { Useless, MayHelp };

    TransportFailure(const std::string& text, Reached reached, Repeat repeat)
        : std::runtime_error(text), m_reached(reached), m_repeat(repeat) {}

    bool mayHaveReached() const noexcept { return m_reached == Reached::Maybe; }
    bool mayHelpToRepeat() const noexcept { return m_repeat == Repeat::MayHelp; }

private:
    Reached m_reached;
    Repeat m_repeat;
};

/// One connection to one server at a time, kept for the next request: HTTP/1.1, paths as they are, redirects not
/// followed, bodies not decoded. Proxies are those of the environment (HTTPS_PROXY, NO_PROXY). Threads: one at a time.
class HttpConnection {
public:
    explicit HttpConnection(HttpSettings settings);
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;
    ~HttpConnection();

    /// Send a request and wait for its answer, whatever its status.
    ///
    /// Values   sink: for the body of an answer with the status 200 or 206; null: it is kept, up to 16 MiB, as others
    ///          always are.
    /// Errors   TransportFailure; foundation::OperationInterrupted within about a second; what sink throws.
    HttpResponse perform(const HttpRequest& request, BodySink* sink);

    /// What the last request took.
    const HttpTraffic& traffic() const noexcept { return m_traffic; }
    /// How often the last request was sent. libcurl repeats what got no answer on a connection that had been kept.
    unsigned sends() const noexcept { return m_sends; }

    /// Forget the connection without a word to the server: it is a forked parent's.
    static void disown(std::unique_ptr<HttpConnection> connection) noexcept;

private:
    class Exchange;

    const HttpSettings m_settings;
    QuickAcks m_acks;
    void* m_handle;  // of libcurl
    HttpTraffic m_traffic;
    unsigned m_sends = 0;
};

}  // namespace storage::cloudprovider::s3
