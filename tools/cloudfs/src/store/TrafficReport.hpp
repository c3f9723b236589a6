// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace storage::cloudprovider {
class S3Client;
}

namespace cloudfs {

/// Says what a command moved between here and the store. One thread.
class TrafficReport {
public:
    /// Report that client's traffic from now on.
    void of(std::shared_ptr<storage::cloudprovider::S3Client> client);

    /// Such as "14 requests, 5.0 MiB sent, 5.0 MiB received"; that there were none for a store on this machine.
    std::string text() const;

private:
    std::function<std::string()> m_describe;
};

}  // namespace cloudfs
