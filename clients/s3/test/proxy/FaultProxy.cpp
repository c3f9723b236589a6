// SPDX-License-Identifier: Apache-2.0
#include "FaultProxy.hpp"

#include <poll.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <limits>
#include <list>
#include <memory>
#include <optional>
#include <random>
#include <system_error>
#include <utility>

namespace storage::cloudprovider::s3::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kChunk = 64 * 1024;
constexpr const char* kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
// Swift's answer to HEAD says chunked, and is followed by this all the same.
constexpr const char* kEmptyChunk = "0\r\n\r\n";
constexpr const char* kSlowDown =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<Error><Code>SlowDown</Code><Message>Please reduce your request rate.</Message></Error>";
constexpr const char* kErrorInside =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<Error><Code>InternalError</Code><Message>We encountered an internal error.</Message></Error>";

// Thrown to end a connection as if the line had been cut.
struct ConnectionEnds {};

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char each) { return static_cast<char>(std::tolower(each)); });
    return text;
}

// The head of a request or an answer.
class Head {
public:
    explicit Head(std::string text) : m_text(std::move(text)), m_lowerCase(lowerCase(m_text)) {}

    const std::string& text() const { return m_text; }

    // A field of the first line.
    std::string word(std::size_t index) const {
        std::size_t begin = 0;
        for (; index > 0; --index) {
            begin = m_text.find(' ', begin) + 1;
        }
        return m_text.substr(begin, m_text.find_first_of(" \r\n", begin) - begin);
    }

    // A header by its name in lower case; the value, too, is told in lower case.
    std::optional<std::string> header(const std::string& name) const {
        const auto found = m_lowerCase.find("\n" + name + ":");
        if (found == std::string::npos) {
            return std::nullopt;
        }
        const auto begin = m_lowerCase.find_first_not_of(' ', found + name.size() + 2);
        return m_lowerCase.substr(begin, m_lowerCase.find_first_of("\r\n", begin) - begin);
    }

    std::optional<std::uint64_t> contentLength() const {
        const auto value = header("content-length");
        return value ? std::optional<std::uint64_t>(std::stoull(*value)) : std::nullopt;
    }

    Head withContentLength(std::uint64_t length) const {
        const auto begin = m_lowerCase.find("\ncontent-length:") + 1;
        auto text = m_text;
        return Head(text.replace(begin, text.find('\r', begin) - begin, "Content-Length: " + std::to_string(length)));
    }

private:
    std::string m_text;
    std::string m_lowerCase;
};

bool completesOrCopies(const Head& request) {
    const bool completes = request.word(0) == "POST" && request.word(1).find("uploadId=") != std::string::npos;
    return completes || request.header("x-amz-copy-source");
}

bool canBefall(Fault fault, const Head& request) {
    switch (fault) {
        case Fault::Truncated:
            return request.word(0) == "GET";
        case Fault::Oversized:
            return request.word(0) == "GET" && request.header("range");
        case Fault::ErrorInside:
            return completesOrCopies(request);
        default:
            return true;
    }
}

}  // namespace

// Serves the requests of one connection, one after the other, on a thread of its own.
class FaultProxy::Connection {
public:
    Connection(FaultProxy& proxy, Socket client, Socket server)
        : m_proxy(proxy), m_client(std::move(client)), m_server(std::move(server)), m_thread([this] { run(); }) {}

    ~Connection() {
        m_client.shutDown();
        m_server.shutDown();
        m_thread.join();
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool hasEnded() const { return m_hasEnded; }

private:
    // One direction of the line.
    struct Direction {
        SocketReader from;
        std::atomic<std::uint64_t>& bytes;
        Clock::time_point free{};  // when the line has carried what was sent
    };

    void run() {
        try {
            while (awaitRequest() && serve()) {
            }
        } catch (const ConnectionEnds&) {
        } catch (const std::exception&) {
            // Either peer has gone, or talks no HTTP: the other one sees the connection end.
        }
        m_client.shutDown();
        m_server.shutDown();
        m_hasEnded = true;
    }

    // False when either side has ended the idle connection.
    bool awaitRequest() {
        while (!m_up.from.hasUnread()) {
            std::array<pollfd, 2> sides{{{m_client.descriptor(), POLLIN, 0}, {m_server.descriptor(), POLLIN, 0}}};
            while (::poll(sides.data(), sides.size(), -1) < 0 && errno == EINTR) {
            }
            if ((sides[1].revents != 0 && !m_down.from.fill()) || (sides[0].revents != 0 && !m_up.from.fill())) {
                return false;
            }
        }
        return true;
    }

    // False when the connection is not to be used again.
    bool serve() {
        const Head request(m_up.from.head());
        if (request.text().empty()) {
            return false;
        }
        m_up.bytes += request.text().size();
        const auto fault = choose(request);
        const auto length = request.contentLength().value_or(0);
        if (request.header("expect")) {
            carry(m_down, kContinue, &m_client);  // the server's own is dropped, when it comes
        }
        m_proxy.waitUntil(Clock::now() + m_proxy.m_options.delay);
        if (fault == Fault::SlowDown || (fault == Fault::ErrorInside && pick(0, 1) == 0)) {
            pass(m_up, length, nullptr);
            answerWith(fault);
            return true;
        }
        if (fault == Fault::Reset) {
            reset(request, length);
        }
        m_server.write(request.text());
        const bool isTaken = sendBody(length);
        const Head answer = readAnswer();
        passAnswer(request, answer, fault);
        return isTaken && answer.header("connection") != "close" && request.header("connection") != "close";
    }

    // What befalls a request follows from the seed and its number alone, however threads take turns.
    Fault choose(const Head& request) {
        const auto& options = m_proxy.m_options;
        std::seed_seq seed{options.seed, m_proxy.m_requests++};
        m_random.seed(seed);
        auto point = std::uniform_real_distribution<double>(0, 1)(m_random);
        for (const auto& [fault, chance] : options.chances) {
            point -= chance;
            if (point < 0) {
                return befall(canBefall(fault, request) ? fault : Fault::None);
            }
        }
        return Fault::None;
    }

    Fault befall(Fault fault) {
        ++m_proxy.m_faults.at(static_cast<std::size_t>(fault));
        return fault;
    }

    std::uint64_t pick(std::uint64_t least, std::uint64_t most) {
        return std::uniform_int_distribution<std::uint64_t>(least, most)(m_random);
    }

    // Ends as the connection does.
    [[noreturn]] void reset(const Head& request, std::uint64_t length) {
        if (length > 0) {
            m_server.write(request.text());
            pass(m_up, pick(0, length - 1), &m_server);
        }
        m_client.resetOnClose();
        m_server.resetOnClose();
        throw ConnectionEnds();
    }

    // False when the server did not read all of it, as it may when it refuses a request.
    bool sendBody(std::uint64_t length) {
        try {
            pass(m_up, length, &m_server);
            return true;
        } catch (const std::system_error&) {
            return false;
        }
    }

    Head readAnswer() {
        for (;;) {
            Head answer(m_down.from.head());
            if (answer.text().empty()) {
                throw ConnectionEnds();
            }
            const bool isFinal = answer.text() != kEmptyChunk && answer.word(1).front() != '1';
            if (isFinal) {
                return answer;
            }
        }
    }

    void passAnswer(const Head& request, const Head& answer, Fault fault) {
        const auto status = answer.word(1);
        const bool hasBody = request.word(0) != "HEAD" && status != "204" && status != "304";
        const auto length = hasBody ? answer.contentLength() : 0;
        const bool isKnown = length.value_or(0) > 0;
        if (fault == Fault::LostAnswer || fault == Fault::ErrorInside) {
            passBody(answer, hasBody, nullptr);
            if (fault == Fault::LostAnswer) {
                throw ConnectionEnds();
            }
            answerWith(fault);
        } else if (fault == Fault::Truncated && length != 0U) {
            carry(m_down, answer.text(), &m_client);
            pass(m_down, isKnown ? pick(0, *length - 1) : 0, &m_client);
            throw ConnectionEnds();
        } else if (fault == Fault::Oversized && status == "206" && isKnown) {
            const std::string surplus(pick(1, 1000), '!');
            carry(m_down, answer.withContentLength(*length + surplus.size()).text(), &m_client);
            pass(m_down, *length, &m_client);
            carry(m_down, surplus, &m_client);
        } else {
            const auto before = fault == Fault::Stall ? pick(0, length.value_or(0)) : 0;
            carry(m_down, answer.text(), &m_client);
            if (fault == Fault::Stall) {
                pass(m_down, before, &m_client);
                m_proxy.waitUntil(Clock::now() + m_proxy.m_options.stall);
            }
            passBody(answer, hasBody, &m_client, before);
        }
    }

    void answerWith(Fault fault) {
        const bool isSlowDown = fault == Fault::SlowDown;
        const std::string body = isSlowDown ? kSlowDown : kErrorInside;
        carry(m_down,
              std::string("HTTP/1.1 ") + (isSlowDown ? "503 Slow Down" : "200 OK") +
                  "\r\nContent-Type: application/xml\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                  body,
              &m_client);
    }

    // What is left of an answer's body, after so many bytes; without a socket it is dropped. When only the end of the
    // connection ends the body, this ends, too, as the connection does.
    void passBody(const Head& answer, bool hasBody, Socket* to, std::uint64_t done = 0) {
        if (!hasBody) {
            return;
        }
        if (answer.header("transfer-encoding") == "chunked") {
            passChunks(to);
        } else {
            pass(m_down, answer.contentLength().value_or(std::numeric_limits<std::uint64_t>::max()) - done, to);
        }
    }

    void passChunks(Socket* to) {
        for (;;) {
            const auto size = m_down.from.line();
            carry(m_down, size, to);
            const auto count = std::stoull(size, nullptr, 16);
            if (count == 0) {
                return carry(m_down, m_down.from.head(), to);
            }
            pass(m_down, count + 2, to);  // with its end of line
        }
    }

    void pass(Direction& direction, std::uint64_t count, Socket* to) {
        const auto rate = m_proxy.m_options.bytesPerSecond;
        const auto most = rate == 0 ? kChunk : std::clamp<std::uint64_t>(rate / 20, 1, kChunk);
        while (count > 0) {
            const auto bytes = direction.from.some(std::min(most, count));
            if (bytes.empty()) {
                throw ConnectionEnds();
            }
            count -= bytes.size();
            carry(direction, bytes, to);
        }
    }

    void carry(Direction& direction, const std::string& bytes, Socket* to) {
        direction.bytes += bytes.size();
        if (const auto rate = m_proxy.m_options.bytesPerSecond; rate > 0) {
            // Waking up late is made up for.
            direction.free = std::max(direction.free, Clock::now() - std::chrono::milliseconds(10)) +
                             std::chrono::nanoseconds(bytes.size() * 1'000'000'000 / rate);
            m_proxy.waitUntil(direction.free);
        }
        if (to != nullptr) {
            to->write(bytes);
        }
    }

    FaultProxy& m_proxy;
    Socket m_client;
    Socket m_server;
    Direction m_up{SocketReader(m_client), m_proxy.m_bytesFromClient};
    Direction m_down{SocketReader(m_server), m_proxy.m_bytesToClient};
    std::mt19937_64 m_random;
    std::atomic<bool> m_hasEnded{false};
    std::thread m_thread;
};

FaultProxy::FaultProxy(FaultProxyOptions options)
    : m_options(std::move(options)), m_listener(m_options.port), m_acceptor([this] { acceptConnections(); }) {}

FaultProxy::~FaultProxy() {
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
    }
    m_stops.notify_all();
    m_listener.shutDown();
    m_acceptor.join();
}

std::string FaultProxy::endpoint() const {
    return "http://127.0.0.1:" + std::to_string(port());
}

FaultProxy::Counts FaultProxy::counts() const {
    Counts counts{m_requests, m_bytesFromClient, m_bytesToClient, {}};
    for (std::size_t fault = 1; fault < m_faults.size(); ++fault) {
        counts.faults[static_cast<Fault>(fault)] = m_faults.at(fault);
    }
    return counts;
}

// Ends when the listener is shut down. The connections live here, and end with it.
void FaultProxy::acceptConnections() {
    std::list<std::unique_ptr<Connection>> connections;
    try {
        for (;;) {
            Socket client = m_listener.accept();
            connections.remove_if([](const auto& each) { return each->hasEnded(); });
            try {
                connections.push_back(std::make_unique<Connection>(
                    *this, std::move(client), Socket::connectTo(m_options.serverHost, m_options.serverPort)));
            } catch (const std::system_error&) {
                // The server is away: the client sees its connection end.
            }
        }
    } catch (const std::system_error&) {
    }
}

void FaultProxy::waitUntil(std::chrono::steady_clock::time_point time) const {
    std::unique_lock lock(m_mutex);
    m_stops.wait_until(lock, time, [this] { return m_isStopping; });
}

}  // namespace storage::cloudprovider::s3::test
