// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Socket.hpp"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace storage::cloudprovider::s3::test {

/// What can befall a request.
enum class Fault {
    None,
    SlowDown,     ///< answered with 503; the store sees nothing
    Reset,        ///< the connection is reset, before the request or within its body
    Stall,        ///< nothing happens for a while, somewhere in the answer
    Truncated,    ///< of a GET's answer the end is missing
    Oversized,    ///< the answer to a GET of a range has more bytes than were asked for, and says so
    ErrorInside,  ///< completing and copying: status 200 with an error in the body; half of them took effect
    LostAnswer,   ///< the request takes effect, but the connection ends instead of an answer
};

constexpr std::array<const char*, 8> kFaultNames{"none",      "slow-down", "reset",        "stall",
                                                 "truncated", "oversized", "error-inside", "lost-answer"};

struct FaultProxyOptions {
    std::string serverHost = "127.0.0.1";
    std::uint16_t serverPort = 0;
    std::uint16_t port = 0;           ///< to listen on; 0: a free one
    std::uint64_t seed = 1;           ///< decides, with the number of a request, what befalls it
    std::map<Fault, double> chances;  ///< 0 to 1 for each request that a fault can befall; together at most 1
    std::chrono::milliseconds stall{1000};
    std::chrono::milliseconds delay{0};  ///< of each request
    std::uint64_t bytesPerSecond = 0;    ///< of each connection, each way; 0: as fast as it goes
};

/// A distant and unreliable line to an HTTP server, on 127.0.0.1.
///
/// Passes the heads of requests on as they are, with Host, so that signatures hold. Bodies of requests have a
/// Content-Length, those of answers may be chunked; they stream through. Each connection has one of its own to the
/// server, and ends with it. Threads: any.
class FaultProxy {
public:
    struct Counts {
        std::uint64_t requests = 0;
        std::uint64_t bytesFromClient = 0;  ///< with heads
        std::uint64_t bytesToClient = 0;
        std::map<Fault, std::uint64_t> faults;
    };

    explicit FaultProxy(FaultProxyOptions options);
    FaultProxy(const FaultProxy&) = delete;
    FaultProxy& operator=(const FaultProxy&) = delete;
    /// Breaks off what is under way.
    ~FaultProxy();

    std::uint16_t port() const { return m_listener.port(); }
    /// "http://127.0.0.1:PORT"
    std::string endpoint() const;
    /// What went through since the proxy started.
    Counts counts() const;

private:
    class Connection;

    void acceptConnections();
    void waitUntil(std::chrono::steady_clock::time_point time) const;

    // Set by the constructor, never changed.
    const FaultProxyOptions m_options;

    Listener m_listener;
    std::atomic<std::uint64_t> m_requests{0};
    std::atomic<std::uint64_t> m_bytesFromClient{0};
    std::atomic<std::uint64_t> m_bytesToClient{0};
    std::array<std::atomic<std::uint64_t>, kFaultNames.size()> m_faults{};

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_stops;
    bool m_isStopping = false;  // guarded by m_mutex

    std::thread m_acceptor;
};

}  // namespace storage::cloudprovider::s3::test
