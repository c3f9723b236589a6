// SPDX-License-Identifier: Apache-2.0
#include "QuickAcks.hpp"

#include <curl/curl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <new>

namespace storage::cloudprovider::s3 {

void QuickAcks::attach(void* handle) {
    const curl_sockopt_callback onOpen = [](void* self, curl_socket_t socket, curlsocktype) {
        return static_cast<QuickAcks*>(self)->add(socket) ? CURL_SOCKOPT_OK : CURL_SOCKOPT_ERROR;
    };
    const curl_closesocket_callback onClose = [](void* self, curl_socket_t socket) {
        std::erase(static_cast<QuickAcks*>(self)->m_sockets, socket);
        return ::close(socket);
    };
    ::curl_easy_setopt(handle, CURLOPT_SOCKOPTFUNCTION, onOpen);
    ::curl_easy_setopt(handle, CURLOPT_SOCKOPTDATA, this);
    ::curl_easy_setopt(handle, CURLOPT_CLOSESOCKETFUNCTION, onClose);
    ::curl_easy_setopt(handle, CURLOPT_CLOSESOCKETDATA, this);
}

void QuickAcks::acknowledge() const noexcept {
    const int yes = 1;
    for (const int socket : m_sockets) {
        ::setsockopt(socket, IPPROTO_TCP, TCP_QUICKACK, &yes, sizeof yes);
    }
}

// Called through a library of C, which no exception may pass.
bool QuickAcks::add(int socket) noexcept {
    try {
        m_sockets.push_back(socket);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace storage::cloudprovider::s3
