// SPDX-License-Identifier: Apache-2.0
#include "ScriptedServer.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <exception>
#include <stdexcept>
#include <utility>

namespace storage::cloudprovider::test {

namespace {

void sendAll(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto count = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) {
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

// Until the text has its end; false when the connection ends before.
template <class IsComplete>
bool receive(int socket, std::string& text, const IsComplete& isComplete) {
    std::array<char, 65536> buffer{};
    while (!isComplete()) {
        const auto count = ::recv(socket, buffer.data(), buffer.size(), 0);
        if (count <= 0) {
            return false;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return true;
}

ServedRequest parseHead(const std::string& head) {
    ServedRequest request;
    const auto blank = head.find(' ');
    request.Method = head.substr(0, blank);
    request.Target = head.substr(blank + 1, head.find(' ', blank + 1) - blank - 1);
    for (auto at = head.find("\r\n") + 2; at < head.size();) {
        const auto end = head.find("\r\n", at);
        const auto colon = head.find(':', at);
        auto name = head.substr(at, colon - at);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char letter) { return std::tolower(letter); });
        const auto value = std::min(head.find_first_not_of(' ', colon + 1), end);
        request.Headers[name] = head.substr(value, end - value);
        at = end + 2;
    }
    return request;
}

}  // namespace

std::string ServedRequest::header(const std::string& name) const {
    const auto found = Headers.find(name);
    return found == Headers.end() ? std::string() : found->second;
}

ScriptedServer::ScriptedServer() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (m_listener < 0 || ::bind(m_listener, generic, size) != 0 || ::listen(m_listener, 16) != 0 ||
        ::getsockname(m_listener, generic, &size) != 0 || ::pipe(static_cast<int*>(m_wake)) != 0) {
        throw std::runtime_error("cannot listen on loopback");
    }
    m_port = ::ntohs(address.sin_port);
    m_thread = std::thread([this] { serve(); });
}

ScriptedServer::~ScriptedServer() {
    if (::write(m_wake[1], "x", 1) != 1) {
        std::terminate();  // the thread would serve for ever
    }
    m_thread.join();
    for (const int socket : m_sockets) {
        ::close(socket);
    }
    for (const int end : {m_listener, m_wake[0], m_wake[1]}) {
        ::close(end);
    }
}

void ScriptedServer::next(Answer answer) {
    const std::lock_guard lock(m_mutex);
    m_answers.push_back(std::move(answer));
}

void ScriptedServer::next(Reply reply) {
    next([reply = std::move(reply)](const ServedRequest&) { return reply; });
}

std::vector<ServedRequest> ScriptedServer::requests() const {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

std::size_t ScriptedServer::connections() const {
    const std::lock_guard lock(m_mutex);
    return m_connections;
}

void ScriptedServer::serve() {
    while (true) {
        std::vector<pollfd> polled{{m_wake[0], POLLIN, 0}, {m_listener, POLLIN, 0}};
        for (const int socket : m_sockets) {
            polled.push_back({socket, POLLIN, 0});
        }
        ::poll(polled.data(), polled.size(), -1);
        if (polled[0].revents != 0) {
            return;
        }
        if (polled[1].revents != 0) {
            m_sockets.push_back(::accept(m_listener, nullptr, nullptr));
            const std::lock_guard lock(m_mutex);
            ++m_connections;
        }
        for (std::size_t at = 2; at < polled.size(); ++at) {
            if (polled[at].revents != 0) {
                serveOne(polled[at].fd);
            }
        }
    }
}

void ScriptedServer::serveOne(int connection) {
    const auto close = [&] {
        std::erase(m_sockets, connection);
        ::close(connection);
    };
    std::string text;
    std::size_t end = 0;
    const auto hasHead = [&] { return (end = text.find("\r\n\r\n")) != std::string::npos; };
    if (!receive(connection, text, hasHead)) {
        close();
        return;
    }
    auto request = parseHead(text.substr(0, end + 2));
    const auto length = request.header("content-length");
    const auto size = length.empty() ? 0 : std::stoul(length);
    request.Body = text.substr(end + 4);
    receive(connection, request.Body, [&] { return request.Body.size() >= size; });

    const auto reply = takeReply(request);
    if (reply.How == Reply::End::Silence) {
        return;
    }
    if (reply.How == Reply::End::Drop) {
        close();
        return;
    }
    std::string answer = "HTTP/1.1 " + std::to_string(reply.Status) + " Told\r\n";
    bool hasLength = reply.Status == 204;
    for (const auto& header : reply.Headers) {
        answer += header + "\r\n";
        hasLength = hasLength || header.starts_with("Content-Length") || header.starts_with("Transfer");
    }
    answer += (hasLength ? "" : "Content-Length: " + std::to_string(reply.Body.size()) + "\r\n") + std::string("\r\n");
    if (reply.How == Reply::End::InTwo) {
        sendAll(connection, std::exchange(answer, {}));
    }
    const bool isCut = reply.How == Reply::End::Truncate;
    if (request.Method != "HEAD") {
        answer += isCut ? reply.Body.substr(0, reply.Body.size() / 2) : reply.Body;
    }
    sendAll(connection, answer);
    if (isCut) {
        close();
    }
}

Reply ScriptedServer::takeReply(const ServedRequest& request) {
    Answer answer;
    {
        const std::lock_guard lock(m_mutex);
        m_requests.push_back(request);
        if (m_answers.empty()) {
            return {599, "nobody told an answer", {}, Reply::End::Stay};
        }
        answer = std::move(m_answers.front());
        m_answers.pop_front();
    }
    return answer(request);
}

}  // namespace storage::cloudprovider::test
