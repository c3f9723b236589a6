// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace storage::cloudprovider::test {

/// A request as it arrived.
struct ServedRequest {
    std::string Method;
    std::string Target;
    std::map<std::string, std::string> Headers;  ///< names in lower case
    std::string Body;

    std::string header(const std::string& name) const;
};

/// What is answered, and how that ends.
struct Reply {
    enum class End : std::uint8_t {
        Stay,      ///< the connection stays
        InTwo,     ///< the connection stays; the body goes by itself, as soon as the head has been acknowledged
        Silence,   ///< nothing is answered, the connection stays
        Drop,      ///< nothing is answered, the connection ends
        Truncate,  ///< it ends after half the body
    };

    int Status = 200;
    std::string Body{};
    std::vector<std::string> Headers{};
    End How = End::Stay;
};

/// An HTTP server on loopback that answers as a test tells it, each request with the next reply. It has one thread.
class ScriptedServer {
public:
    using Answer = std::function<Reply(const ServedRequest& request)>;

    ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();

    std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port); }

    /// Answer the next request that has none yet so. What nobody told an answer for gets the status 599.
    void next(Answer answer);
    void next(Reply reply);

    /// All that came.
    std::vector<ServedRequest> requests() const;
    std::size_t connections() const;

private:
    void serve();
    void serveOne(int connection);
    Reply takeReply(const ServedRequest& request);

    int m_listener = -1;
    int m_wake[2] = {-1, -1};
    unsigned m_port = 0;
    std::vector<int> m_sockets;  // of the thread

    // Guards what follows.
    mutable std::mutex m_mutex;
    std::deque<Answer> m_answers;
    std::vector<ServedRequest> m_requests;
    std::size_t m_connections = 0;

    std::thread m_thread;
};

}  // namespace storage::cloudprovider::test
