// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/s3/S3Options.hpp>

#include <string>
#include <string_view>

namespace storage::cloudprovider::s3 {

/// A server, as a URL begins.
struct Origin {
    bool IsTls = true;
    std::string Host;  ///< as the header has it: in lower case, with the port unless it is the usual one
    std::string Path;  ///< empty, or begins with "/" and does not end so

    std::string url() const { return (IsTls ? "https://" : "http://") + Host + Path; }
    /// The host without its port.
    std::string_view name() const;
};

/// Take a URL apart as far as it names a server. Throws InvalidLocationException, without the text, when it is none,
/// has a user or a password in it, a query or a fragment.
Origin parseOrigin(std::string_view url);

/// Where a bucket's objects are. A value.
class S3Address {
public:
    /// Values   options: completed ones.
    explicit S3Address(const S3Options& options);

    /// The bucket's server; the path is what stands in front of a key's "/".
    const Origin& origin() const noexcept { return m_origin; }
    /// Whether it was made of the region.
    bool isAwsOwn() const noexcept { return m_isAwsOwn; }
    /// Whether it is a server of AWS.
    bool isAws() const;
    /// Whether the store may send a request on to that server: over TLS if this is, below the endpoint's domain.
    bool maySendOnTo(const Origin& other) const;

private:
    std::string m_endpointName;
    bool m_isAwsOwn;
    Origin m_origin;
};

}  // namespace storage::cloudprovider::s3
