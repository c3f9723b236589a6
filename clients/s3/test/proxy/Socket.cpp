// SPDX-License-Identifier: Apache-2.0
#include "Socket.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

namespace storage::cloudprovider::s3::test {

namespace {

constexpr std::size_t kReceivedAtOnce = 16 * 1024;

[[noreturn]] void fail(const char* step) {
    throw std::system_error(errno, std::generic_category(), step);
}

void check(int result, const char* step) {
    if (result < 0) {
        fail(step);
    }
}

int openSocket(int family) {
    const int descriptor = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(descriptor, "socket");
    return descriptor;
}

// A proxy that waits for more bytes to send would add a delay of its own.
void sendAtOnce(int descriptor) {
    const int yes = 1;
    check(::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes)), "setsockopt");
}

}  // namespace

Socket::Socket(int descriptor) : m_descriptor(descriptor) {}

Socket::Socket(Socket&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

Socket::~Socket() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

Socket Socket::connectTo(const std::string& host, std::uint16_t port) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (const int error = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found); error != 0) {
        throw std::system_error(std::make_error_code(std::errc::host_unreachable), ::gai_strerror(error));
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> addresses(found, &::freeaddrinfo);
    Socket socket(openSocket(AF_INET));
    check(::connect(socket.m_descriptor, addresses->ai_addr, addresses->ai_addrlen), "connect");
    sendAtOnce(socket.m_descriptor);
    return socket;
}

std::size_t Socket::read(char* bytes, std::size_t count) const {
    ssize_t result = 0;
    do {
        result = ::recv(m_descriptor, bytes, count, 0);
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        fail("recv");
    }
    // The line is to be as slow as it was told, not as slow as a server that waits for acknowledgements.
    const int yes = 1;
    ::setsockopt(m_descriptor, IPPROTO_TCP, TCP_QUICKACK, &yes, sizeof(yes));
    return static_cast<std::size_t>(result);
}

void Socket::write(const std::string& bytes) const {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const auto result = ::send(m_descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (result >= 0) {
            sent += static_cast<std::size_t>(result);
        } else if (errno != EINTR) {
            fail("send");
        }
    }
}

void Socket::resetOnClose() const {
    const linger atOnce{1, 0};
    check(::setsockopt(m_descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce)), "setsockopt");
}

void Socket::shutDown() const {
    ::shutdown(m_descriptor, SHUT_RDWR);
}

Listener::Listener(std::uint16_t port) : m_socket(openSocket(AF_INET)), m_port(port) {
    const int yes = 1;
    check(::setsockopt(m_socket.descriptor(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)), "setsockopt");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    check(::bind(m_socket.descriptor(), generic, size), "bind");
    check(::listen(m_socket.descriptor(), SOMAXCONN), "listen");
    check(::getsockname(m_socket.descriptor(), generic, &size), "getsockname");
    m_port = ntohs(address.sin_port);
}

Socket Listener::accept() {
    int descriptor = -1;
    do {
        descriptor = ::accept4(m_socket.descriptor(), nullptr, nullptr, SOCK_CLOEXEC);
    } while (descriptor < 0 && (errno == EINTR || errno == ECONNABORTED));
    check(descriptor, "accept");
    Socket socket(descriptor);
    sendAtOnce(descriptor);
    return socket;
}

std::string SocketReader::some(std::size_t most) {
    if (!m_unread.empty()) {
        auto bytes = m_unread.substr(0, most);
        m_unread.erase(0, bytes.size());
        return bytes;
    }
    std::string bytes(most, '\0');
    bytes.resize(m_socket.read(bytes.data(), bytes.size()));
    return bytes;
}

bool SocketReader::fill() {
    std::string bytes(kReceivedAtOnce, '\0');
    const auto count = m_socket.read(bytes.data(), bytes.size());
    m_unread.append(bytes, 0, count);
    return count > 0;
}

std::string SocketReader::line() {
    std::string line;
    for (;;) {
        const auto end = m_unread.find('\n');
        if (end != std::string::npos) {
            line += m_unread.substr(0, end + 1);
            m_unread.erase(0, end + 1);
            return line;
        }
        line += std::exchange(m_unread, std::string());
        if (!fill()) {
            if (line.empty()) {
                return line;
            }
            throw std::system_error(std::make_error_code(std::errc::connection_aborted), "end within a line");
        }
    }
}

std::string SocketReader::head() {
    std::string head;
    std::string next;
    do {
        next = line();
        head += next;
    } while (!next.empty() && next != "\r\n" && next != "\n");
    return head;
}

}  // namespace storage::cloudprovider::s3::test
