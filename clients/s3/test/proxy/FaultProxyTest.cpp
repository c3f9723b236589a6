// SPDX-License-Identifier: Apache-2.0
#include "FaultProxy.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace storage::cloudprovider::s3::test {

namespace {

using Clock = std::chrono::steady_clock;

// What came back: nothing when the connection ended before or within it.
struct Answer {
    std::string head;
    std::string body;
};

std::optional<Answer> readAnswer(SocketReader& reader) {
    try {
        Answer answer{reader.head(), ""};
        const auto at = answer.head.find("Content-Length: ");
        if (at == std::string::npos) {
            return std::nullopt;
        }
        const auto size = std::stoull(answer.head.substr(at + 16));
        while (answer.body.size() < size) {
            const auto bytes = reader.some(size - answer.body.size());
            if (bytes.empty()) {
                return std::nullopt;
            }
            answer.body += bytes;
        }
        return answer;
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

// Answers every request with its body, or with a page of its own, after having noted it.
class EchoServer {
public:
    EchoServer() : m_acceptor([this] { accept(); }) {}
    ~EchoServer() {
        m_listener.shutDown();
        m_acceptor.join();
    }
    EchoServer(const EchoServer&) = delete;
    EchoServer& operator=(const EchoServer&) = delete;

    std::uint16_t port() const { return m_listener.port(); }
    std::vector<std::string> requests() const {
        const std::lock_guard lock(m_mutex);
        return m_requests;
    }

    static std::string page() {
        std::string page;
        page.resize(300 * 1000, 'p');
        return page;
    }

private:
    void accept() {
        std::list<std::thread> threads;
        try {
            for (;;) {
                threads.emplace_back([this, socket = m_listener.accept()]() mutable { serve(socket); });
            }
        } catch (const std::system_error&) {
        }
        for (auto& thread : threads) {
            thread.join();
        }
    }

    void serve(Socket& socket) {
        SocketReader reader(socket);
        try {
            for (auto head = reader.head(); !head.empty(); head = reader.head()) {
                std::string body;
                if (const auto at = head.find("Content-Length: "); at != std::string::npos) {
                    for (auto left = std::stoull(head.substr(at + 16)); left > 0;) {
                        const auto bytes = reader.some(left);
                        left -= bytes.size();
                        body += bytes;
                        if (bytes.empty()) {
                            return;
                        }
                    }
                }
                {
                    const std::lock_guard lock(m_mutex);
                    m_requests.push_back(head);
                }
                if (head.compare(0, 4, "HEAD") == 0) {
                    // As Swift does, with the end of a body where none may be.
                    socket.write("HTTP/1.1 404 None\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n");
                    continue;
                }
                const bool isGet = head.compare(0, 3, "GET") == 0;
                const auto answer = isGet ? page() : body;
                const bool isRange = head.find("Range:") != std::string::npos;
                socket.write(std::string("HTTP/1.1 ") + (isRange ? "206" : "200") +
                             " Fine\r\nContent-Length: " + std::to_string(answer.size()) + "\r\n\r\n" + answer);
            }
        } catch (const std::system_error&) {
        }
    }

    Listener m_listener{0};
    mutable std::mutex m_mutex;
    std::vector<std::string> m_requests;  // guarded by m_mutex
    std::thread m_acceptor;
};

class FaultProxyTest : public testing::Test {
protected:
    FaultProxyOptions options(std::map<Fault, double> chances = {}) const {
        FaultProxyOptions options;
        options.serverPort = m_server.port();
        options.chances = std::move(chances);
        return options;
    }

    static std::string get(const std::string& header = "") {
        return "GET /object HTTP/1.1\r\nHost: 127.0.0.1:1\r\n" + header + "\r\n";
    }

    static std::string put(const std::string& body, const std::string& header = "") {
        return "PUT /object HTTP/1.1\r\nHost: 127.0.0.1:1\r\n" + header +
               "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    static std::optional<Answer> ask(const FaultProxy& proxy, const std::string& request) {
        auto socket = Socket::connectTo("127.0.0.1", proxy.port());
        SocketReader reader(socket);
        try {
            socket.write(request);
        } catch (const std::system_error&) {
            return std::nullopt;
        }
        return readAnswer(reader);
    }

    EchoServer m_server;
};

}  // namespace

TEST_F(FaultProxyTest, PassesRequestsOnAsTheyAreAndCountsThem) {
    const FaultProxy proxy(options());
    auto socket = Socket::connectTo("127.0.0.1", proxy.port());
    SocketReader reader(socket);
    const std::vector<std::string> requests{put("ab", "X-Odd:  Value \r\n"), get(), put(""), put(EchoServer::page())};
    std::uint64_t sent = 0;
    std::uint64_t received = 0;
    for (const auto& request : requests) {
        socket.write(request);
        const auto answer = readAnswer(reader);
        ASSERT_TRUE(answer);
        const auto bodyAt = request.find("\r\n\r\n") + 4;
        EXPECT_EQ(answer->body, request[0] == 'G' ? EchoServer::page() : request.substr(bodyAt));
        EXPECT_EQ(m_server.requests().back(), request.substr(0, bodyAt));
        sent += request.size();
        received += answer->head.size() + answer->body.size();
    }
    EXPECT_EQ(proxy.counts().requests, requests.size());
    EXPECT_EQ(proxy.counts().bytesFromClient, sent);
    EXPECT_EQ(proxy.counts().bytesToClient, received);
}

TEST_F(FaultProxyTest, GoesOnAfterAnAnswerToHeadThatIsChunked) {
    const FaultProxy proxy(options());
    auto socket = Socket::connectTo("127.0.0.1", proxy.port());
    SocketReader reader(socket);
    for (int count = 0; count < 3; ++count) {
        socket.write("HEAD /object HTTP/1.1\r\n\r\n");
        EXPECT_NE(reader.head().find(" 404 "), std::string::npos);
        socket.write(get());
        const auto answer = readAnswer(reader);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->body, EchoServer::page());
    }
}

TEST_F(FaultProxyTest, FaultsBefallTheRequestsTheyAreMeantFor) {
    const std::string copy = put("", "x-amz-copy-source: /bucket/key\r\n");
    const std::string range = get("Range: bytes=0-9\r\n");
    const auto isLost = [](const auto& answer) { return !answer; };
    const auto isWhole = [](const auto& answer) { return answer && answer->body == EchoServer::page(); };
    struct Row {
        const char* name;
        Fault fault;
        std::string request;
        std::function<bool(const std::optional<Answer>&)> isExpected;
        std::size_t leastEffects;
        std::size_t mostEffects;
    };
    const std::vector<Row> rows{
        {"a put is put off", Fault::SlowDown, put("x"),
         [](const auto& answer) { return answer && answer->head.find(" 503 ") != std::string::npos; }, 0, 0},
        {"a put is reset", Fault::Reset, put(EchoServer::page()), isLost, 0, 0},
        {"a get is reset", Fault::Reset, get(), isLost, 0, 0},
        {"a get is cut", Fault::Truncated, get(), isLost, 20, 20},
        {"a put's answer is not cut", Fault::Truncated, put(EchoServer::page()), isWhole, 20, 20},
        {"a range is too long", Fault::Oversized, range,
         [](const auto& answer) { return answer && answer->body.size() > EchoServer::page().size(); }, 20, 20},
        {"a whole object is not", Fault::Oversized, get(), isWhole, 20, 20},
        {"a copy fails inside, with or without effect", Fault::ErrorInside, copy,
         [](const auto& answer) {
             return answer && answer->head.find(" 200 ") != std::string::npos &&
                    answer->body.find("<Error>") != std::string::npos;
         },
         1, 19},
        {"a put does not fail inside", Fault::ErrorInside, put(EchoServer::page()), isWhole, 20, 20},
        {"the effect is there, the answer is not", Fault::LostAnswer, put("x"), isLost, 20, 20},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const FaultProxy proxy(options({{row.fault, 1.0}}));
        const auto before = m_server.requests().size();
        for (int count = 0; count < 20; ++count) {
            EXPECT_TRUE(row.isExpected(ask(proxy, row.request)));
        }
        const auto effects = m_server.requests().size() - before;
        EXPECT_GE(effects, row.leastEffects);
        EXPECT_LE(effects, row.mostEffects);
    }
}

TEST_F(FaultProxyTest, ASeedAndANumberDecideWhatBefallsARequest) {
    const auto outcomes = [this](std::uint64_t seed) {
        auto faulty = options({{Fault::SlowDown, 0.3}, {Fault::LostAnswer, 0.3}});
        faulty.seed = seed;
        const FaultProxy proxy(faulty);
        std::string seen;
        for (int count = 0; count < 40; ++count) {
            const auto answer = ask(proxy, put("x"));
            seen += answer ? answer->head.substr(9, 1) : "-";
        }
        return seen;
    };
    EXPECT_EQ(outcomes(1), outcomes(1));
    EXPECT_NE(outcomes(1), outcomes(2));
    EXPECT_NE(outcomes(1).find('2'), std::string::npos);
}

// At least as slow as asked for; how much slower is the machine's business.
TEST_F(FaultProxyTest, TheLineIsDistantAndNarrow) {
    auto slow = options({{Fault::Stall, 1.0}});
    slow.stall = std::chrono::milliseconds(40);
    slow.delay = std::chrono::milliseconds(30);
    slow.bytesPerSecond = 3'000'000;  // a page in 100 ms
    const FaultProxy proxy(slow);
    for (const auto& request : {get(), put(EchoServer::page())}) {
        const auto ways = request[0] == 'G' ? 1 : 2;
        const auto start = Clock::now();
        const auto answer = ask(proxy, request);
        const auto taken = Clock::now() - start;
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->body, EchoServer::page());
        EXPECT_GE(taken, std::chrono::milliseconds(60 + 90 * ways));
        EXPECT_LT(taken, std::chrono::seconds(5));
    }
}

// The test's end waits for the proxy's threads: a stall of a minute does not hold it up.
TEST_F(FaultProxyTest, EndsInTheMiddleOfAStall) {
    auto stalling = options({{Fault::Stall, 1.0}});
    stalling.stall = std::chrono::minutes(5);
    auto proxy = std::make_unique<FaultProxy>(stalling);
    auto socket = Socket::connectTo("127.0.0.1", proxy->port());
    SocketReader reader(socket);
    socket.write(get());
    EXPECT_NE(reader.head(), "");
    proxy.reset();
}

}  // namespace storage::cloudprovider::s3::test
