// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace storage::cloudprovider::s3::test {

/// One end of a TCP connection; blocking. Failures are std::system_error. Threads: one, but for shutDown.
class Socket {
public:
    /// Takes an open descriptor.
    explicit Socket(int descriptor);
    Socket(Socket&& other) noexcept;
    Socket& operator=(Socket&&) = delete;
    ~Socket();

    static Socket connectTo(const std::string& host, std::uint16_t port);

    /// Read at most count bytes, waiting for one. 0: the peer has ended its side.
    std::size_t read(char* bytes, std::size_t count) const;
    void write(const std::string& bytes) const;

    /// Let the peer see a reset rather than an orderly end, when this is closed.
    void resetOnClose() const;
    /// End both directions; a read that waits returns. Any thread.
    void shutDown() const;

    int descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

/// Accepts connections on 127.0.0.1.
class Listener {
public:
    /// Listens on port; 0: on a free one.
    explicit Listener(std::uint16_t port);

    std::uint16_t port() const { return m_port; }

    /// Wait for a connection. Fails once shutDown was called.
    Socket accept();
    /// Any thread.
    void shutDown() const { m_socket.shutDown(); }

private:
    Socket m_socket;
    std::uint16_t m_port;
};

/// Reads lines and bytes of a socket, which it refers to.
class SocketReader {
public:
    explicit SocketReader(Socket& socket) : m_socket(socket) {}

    /// Read the next bytes, at most so many. None: the peer has ended its side.
    std::string some(std::size_t most);
    /// Read a line with its end. Empty: the peer has ended its side before; fails when it did so within the line.
    std::string line();
    /// Read lines up to an empty one and with it, as in the head of an HTTP message. Otherwise as line().
    std::string head();

    /// Wait for bytes, and keep them for the other operations. False: the peer has ended its side.
    bool fill();
    bool hasUnread() const { return !m_unread.empty(); }

private:
    Socket& m_socket;
    std::string m_unread;
};

}  // namespace storage::cloudprovider::s3::test
