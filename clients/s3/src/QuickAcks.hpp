// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

namespace storage::cloudprovider::s3 {

/// Acknowledges the heads of answers at once.
///
/// A server that leaves Nagle's algorithm on sends the body of a short answer only when its head has been acknowledged,
/// and on a connection in use the kernel takes 40 ms for that. Best effort: without it answers come later, not others.
/// Lives as long as the handle it is attached to. Threads: one at a time.
class QuickAcks {
public:
    QuickAcks() = default;
    QuickAcks(const QuickAcks&) = delete;
    QuickAcks& operator=(const QuickAcks&) = delete;

    /// Learn of the connections that a handle of libcurl opens and closes. Needed anew where its options were reset.
    void attach(void* handle);

    /// Acknowledge what has been received on the open connections, which are rarely more than one.
    void acknowledge() const noexcept;

private:
    bool add(int socket) noexcept;

    std::vector<int> m_sockets;
};

}  // namespace storage::cloudprovider::s3
