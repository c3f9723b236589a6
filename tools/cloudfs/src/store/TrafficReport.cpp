// SPDX-License-Identifier: Apache-2.0
#include "store/TrafficReport.hpp"

#include "terminal/formatting.hpp"

#ifdef CLOUDFS_WITH_S3
#include <storage/cloudprovider/s3/S3Client.hpp>
#endif

#include <utility>

namespace cloudfs {

#ifdef CLOUDFS_WITH_S3
void TrafficReport::of(std::shared_ptr<storage::cloudprovider::S3Client> client) {
    m_describe = [client = std::move(client)] {
        const auto traffic = client->traffic();
        return std::to_string(traffic.Requests) + " requests, " + formatSize(traffic.BytesSent) + " sent, " +
               formatSize(traffic.BytesReceived) + " received";
    };
}
#endif

std::string TrafficReport::text() const {
    return m_describe ? m_describe() : "no requests: the store is on this machine";
}

}  // namespace cloudfs
