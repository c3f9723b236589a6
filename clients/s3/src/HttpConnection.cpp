// SPDX-License-Identifier: Apache-2.0
#include "HttpConnection.hpp"

#include "interrupts.hpp"
#include "text.hpp"

#include <curl/curl.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <mutex>
#include <utility>

namespace storage::cloudprovider::s3 {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostKept = 16 * 1024 * 1024;
constexpr std::uint64_t kSlowestPerSecond = 1024;
constexpr long kBufferSize = 256 * 1024;

// Keeps a write to a connection that the other end closed from ending the process: libcurl was told to leave signals
// alone, and OpenSSL writes as everybody does.
class WithoutSigpipe {
public:
    WithoutSigpipe() {
        ::sigemptyset(&m_pipe);
        ::sigaddset(&m_pipe, SIGPIPE);
        sigset_t pending;
        ::sigpending(&pending);
        m_wasPending = ::sigismember(&pending, SIGPIPE) == 1;
        ::pthread_sigmask(SIG_BLOCK, &m_pipe, &m_former);
    }
    WithoutSigpipe(const WithoutSigpipe&) = delete;
    WithoutSigpipe& operator=(const WithoutSigpipe&) = delete;
    ~WithoutSigpipe() {
        const std::timespec noTime{};
        if (!m_wasPending) {
            ::sigtimedwait(&m_pipe, nullptr, &noTime);
        }
        ::pthread_sigmask(SIG_SETMASK, &m_former, nullptr);
    }

private:
    sigset_t m_pipe{};
    sigset_t m_former{};
    bool m_wasPending = false;
};

class HeaderList {
public:
    HeaderList() = default;
    HeaderList(const HeaderList&) = delete;
    HeaderList& operator=(const HeaderList&) = delete;
    ~HeaderList() { ::curl_slist_free_all(m_list); }

    void add(const std::string& line) {
        auto* const longer = ::curl_slist_append(m_list, line.c_str());
        if (longer == nullptr) {
            throw std::bad_alloc();
        }
        m_list = longer;
    }
    curl_slist* get() const noexcept { return m_list; }

private:
    curl_slist* m_list = nullptr;
};

CURL* makeHandle() {
    static const CURLcode kInitialized = ::curl_global_init(CURL_GLOBAL_DEFAULT);
    auto* const handle = kInitialized == CURLE_OK ? ::curl_easy_init() : nullptr;
    if (handle == nullptr) {
        throw std::runtime_error("libcurl cannot be initialized");
    }
    return handle;
}

template <class Value>
void set(CURL* handle, CURLoption option, Value value) {
    const auto result = ::curl_easy_setopt(handle, option, value);
    if (result != CURLE_OK) {
        throw TransportFailure(std::string("libcurl: ") + ::curl_easy_strerror(result), TransportFailure::Reached::No,
                               TransportFailure::Repeat::Useless);
    }
}

TransportFailure toFailure(CURLcode code, const std::string& text) {
    using Reached = TransportFailure::Reached;
    using Repeat = TransportFailure::Repeat;
    switch (code) {
        case CURLE_COULDNT_CONNECT:
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_SSL_CONNECT_ERROR:
            return {text, Reached::No, Repeat::MayHelp};
        case CURLE_OPERATION_TIMEDOUT:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_UNSUPPORTED_PROTOCOL:  // an answer that is no HTTP/1.x
            return {text, Reached::Maybe, Repeat::MayHelp};
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_URL_MALFORMAT:
            return {text, Reached::No, Repeat::Useless};
        default:
            return {text, Reached::Maybe, Repeat::Useless};
    }
}

}  // namespace

const std::string& HttpResponse::header(const std::string& lowerName) const {
    static const std::string kNone;
    const auto found = Headers.find(lowerName);
    return found == Headers.end() ? kNone : found->second;
}

/// One request on its way, as libcurl's callbacks see it. They let no exception through libcurl: the first one is kept.
class HttpConnection::Exchange {
public:
    Exchange(const HttpRequest& request, BodySink* sink, const QuickAcks& acks, std::chrono::milliseconds stallTimeout)
        : m_request(request), m_sink(sink), m_acks(acks), m_stallTimeout(stallTimeout) {}

    void attach(CURL* handle) {
        set(handle, CURLOPT_HEADERFUNCTION, &Exchange::onHeader);
        set(handle, CURLOPT_HEADERDATA, this);
        set(handle, CURLOPT_WRITEFUNCTION, &Exchange::onBytes);
        set(handle, CURLOPT_WRITEDATA, this);
        set(handle, CURLOPT_READFUNCTION, &Exchange::onRead);
        set(handle, CURLOPT_READDATA, this);
        set(handle, CURLOPT_SEEKFUNCTION, &Exchange::onSeek);
        set(handle, CURLOPT_SEEKDATA, this);
        set(handle, CURLOPT_XFERINFOFUNCTION, &Exchange::onProgress);
        set(handle, CURLOPT_XFERINFODATA, this);
        set(handle, CURLOPT_NOPROGRESS, 0L);
        set(handle, CURLOPT_DEBUGFUNCTION, &Exchange::onDebug);
        set(handle, CURLOPT_DEBUGDATA, this);
        set(handle, CURLOPT_VERBOSE, 1L);  // to the function only
    }

    // Answers the response of a transfer that ended so, or throws.
    HttpResponse finish(CURLcode code, const char* details) {
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
        if (code != CURLE_OK) {
            throw toFailure(code, *details != '\0' ? details : ::curl_easy_strerror(code));
        }
        beginBody();  // where there was no body
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
        return std::move(m_response);
    }

    unsigned sends() const noexcept { return m_sends; }

private:
    static int onDebug(CURL*, curl_infotype kind, char* bytes, std::size_t size, void* self) {
        auto& exchange = *static_cast<Exchange*>(self);
        const bool isRequest =
            kind == CURLINFO_HEADER_OUT && std::string_view(bytes, size).starts_with(exchange.m_request.Method + ' ');
        exchange.m_sends += isRequest ? 1 : 0;
        return 0;
    }

    template <class Action>
    bool guard(const Action& action) noexcept {
        try {
            action();
            return true;
        } catch (...) {
            m_failure = m_failure ? m_failure : std::current_exception();
            return false;
        }
    }

    static std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* self) {
        auto& exchange = *static_cast<Exchange*>(self);
        const std::string_view line(bytes, size * count);
        return exchange.guard([&] { exchange.takeHeader(line); }) ? line.size() : 0;
    }

    void takeHeader(std::string_view line) {
        const auto colon = line.find(':');
        if (line.starts_with("HTTP/")) {
            m_acks.acknowledge();
            m_response = {};  // after 100 Continue, or a proxy's word, comes another one
            const auto blank = line.find(' ');
            const auto status = blank == line.npos ? std::nullopt : toNumber(line.substr(blank + 1, 3));
            m_response.Status = static_cast<long>(status.value_or(0));
        } else if (colon != line.npos) {
            m_response.Headers[toLower(trim(line.substr(0, colon)))] = trim(line.substr(colon + 1));
        }
    }

    bool goesToSink() const { return m_sink != nullptr && (m_response.Status == 200 || m_response.Status == 206); }

    void beginBody() {
        if (goesToSink() && !std::exchange(m_isBodyBegun, true)) {
            guard([this] { m_sink->begin(m_response); });
        }
    }

    static std::size_t onBytes(char* bytes, std::size_t size, std::size_t count, void* self) {
        auto& exchange = *static_cast<Exchange*>(self);
        const std::string_view body(bytes, size * count);
        exchange.beginBody();
        return !exchange.m_failure && exchange.guard([&] { exchange.takeBytes(body); }) ? body.size() : 0;
    }

    void takeBytes(std::string_view bytes) {
        if (goesToSink()) {
            m_sink->write(bytes);
            return;
        }
        if (bytes.size() > kMostKept - m_response.Body.size()) {
            throw TransportFailure("the answer is larger than 16 MiB", TransportFailure::Reached::Maybe,
                                   TransportFailure::Repeat::Useless);
        }
        m_response.Body += bytes;
    }

    static std::size_t onRead(char* buffer, std::size_t size, std::size_t count, void* self) {
        auto& exchange = *static_cast<Exchange*>(self);
        const auto piece = exchange.m_request.Body.substr(exchange.m_bodyAt, size * count);
        std::memcpy(buffer, piece.data(), piece.size());
        exchange.m_bodyAt += piece.size();
        return piece.size();
    }

    // libcurl begins again where the server had closed a connection that was kept.
    static int onSeek(void* self, curl_off_t offset, int origin) {
        auto& exchange = *static_cast<Exchange*>(self);
        if (origin != SEEK_SET || offset < 0 || static_cast<std::size_t>(offset) > exchange.m_request.Body.size()) {
            return CURL_SEEKFUNC_CANTSEEK;
        }
        exchange.m_bodyAt = static_cast<std::size_t>(offset);
        return CURL_SEEKFUNC_OK;
    }

    // Called once a second at least.
    static int onProgress(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
        auto& exchange = *static_cast<Exchange*>(self);
        return exchange.guard([&] {
            throwIfInterrupted();
            exchange.breakOffStalled(static_cast<std::uint64_t>(received), static_cast<std::uint64_t>(sent));
        })
                   ? 0
                   : 1;
    }

    void breakOffStalled(std::uint64_t received, std::uint64_t sent) {
        const bool isAnswerDue = m_response.Status == 0 && sent >= m_request.Body.size();
        const auto limit = isAnswerDue ? std::max(m_request.AnswerTimeout, m_stallTimeout) : m_stallTimeout;
        const auto now = Clock::now();
        const auto moved = received + sent;
        const auto enough = kSlowestPerSecond * static_cast<std::uint64_t>(limit.count()) / 1000;
        if (moved - m_movedBefore >= std::max<std::uint64_t>(enough, 1) ||
            std::exchange(m_wasDue, isAnswerDue) != isAnswerDue) {
            m_movedBefore = moved;
            m_windowStart = now;
        } else if (now - m_windowStart > limit) {
            throw TransportFailure("the transfer stalled", TransportFailure::Reached::Maybe,
                                   TransportFailure::Repeat::MayHelp);
        }
    }

    const HttpRequest& m_request;
    BodySink* const m_sink;
    const QuickAcks& m_acks;
    const std::chrono::milliseconds m_stallTimeout;

    HttpResponse m_response;
    unsigned m_sends = 0;
    std::size_t m_bodyAt = 0;
    bool m_isBodyBegun = false;
    std::exception_ptr m_failure;

    // A window ends when enough has moved.
    std::uint64_t m_movedBefore = 0;
    bool m_wasDue = false;
    Clock::time_point m_windowStart = Clock::now();
};

HttpConnection::HttpConnection(HttpSettings settings) : m_settings(std::move(settings)), m_handle(makeHandle()) {}

HttpConnection::~HttpConnection() {
    if (m_handle != nullptr) {
        const WithoutSigpipe guard;
        ::curl_easy_cleanup(m_handle);
    }
}

void HttpConnection::disown(std::unique_ptr<HttpConnection> connection) noexcept {
    // Cleaning up would end the TLS session that the parent still uses; a leak of one handle does no harm.
    connection->m_handle = nullptr;
}

HttpResponse HttpConnection::perform(const HttpRequest& request, BodySink* sink) {
    auto* const handle = static_cast<CURL*>(m_handle);
    const bool hasBody = request.Method == "PUT" || request.Method == "POST";
    HeaderList headers;
    headers.add("Expect:");
    headers.add("Accept:");
    for (const auto& [name, value] : request.Headers) {
        headers.add(value.empty() ? name + ';' : name + ": " + value);
    }
    std::array<char, CURL_ERROR_SIZE> details{};
    Exchange exchange(request, sink, m_acks, m_settings.StallTimeout);

    ::curl_easy_reset(handle);  // keeps the connection
    set(handle, CURLOPT_ERRORBUFFER, details.data());
    set(handle, CURLOPT_URL, request.Url.c_str());
    set(handle, CURLOPT_PATH_AS_IS, 1L);
    set(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    set(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(handle, CURLOPT_HTTP_CONTENT_DECODING, 0L);
    set(handle, CURLOPT_NOSIGNAL, 1L);
    set(handle, CURLOPT_TCP_KEEPALIVE, 1L);
    // After a failure libcurl may still have its buffers, and then refuses another size.
    ::curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, kBufferSize);
    ::curl_easy_setopt(handle, CURLOPT_UPLOAD_BUFFERSIZE, kBufferSize);
    set(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(m_settings.ConnectTimeout.count()));
    set(handle, CURLOPT_HTTPHEADER, headers.get());
    if (!m_settings.CaFile.empty()) {
        set(handle, CURLOPT_CAINFO, m_settings.CaFile.c_str());
    }
    set(handle, CURLOPT_SSL_VERIFYPEER, m_settings.VerifyTls ? 1L : 0L);
    set(handle, CURLOPT_SSL_VERIFYHOST, m_settings.VerifyTls ? 2L : 0L);
    if (hasBody) {
        set(handle, CURLOPT_UPLOAD, 1L);
        set(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(request.Body.size()));
    } else if (request.Method == "HEAD") {
        set(handle, CURLOPT_NOBODY, 1L);
    }
    if (request.Method != "HEAD") {
        set(handle, CURLOPT_CUSTOMREQUEST, request.Method.c_str());
    }
    exchange.attach(handle);
    m_acks.attach(handle);

    CURLcode code = CURLE_OK;
    {
        const WithoutSigpipe guard;
        code = ::curl_easy_perform(handle);
    }
    const auto ask = [handle](CURLINFO info, auto kind) {
        decltype(kind) value = 0;
        ::curl_easy_getinfo(handle, info, &value);
        return static_cast<std::uint64_t>(value);
    };
    m_traffic.Sent = ask(CURLINFO_REQUEST_SIZE, 0L) + ask(CURLINFO_SIZE_UPLOAD_T, curl_off_t{});
    m_traffic.Received = ask(CURLINFO_HEADER_SIZE, 0L) + ask(CURLINFO_SIZE_DOWNLOAD_T, curl_off_t{});
    m_sends = exchange.sends();
    ::curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, nullptr);
    return exchange.finish(code, details.data());
}

}  // namespace storage::cloudprovider::s3
