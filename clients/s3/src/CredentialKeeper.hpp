// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/s3/S3Options.hpp>

#include <mutex>
#include <optional>

namespace storage::cloudprovider::s3 {

/// The credentials of a client, renewed before they expire. Threads: any; the source may be asked by several at once.
class CredentialKeeper {
public:
    /// Values   options: completed ones.
    explicit CredentialKeeper(const S3Options& options);

    /// What to sign with; nothing: do not sign.
    std::optional<S3Credentials> get();

    /// Ask the source again at the next get. Tells whether there is one.
    bool renew();

private:
    const std::function<S3Credentials()> m_source;

    // Guards m_current; not held while the source is asked.
    std::mutex m_mutex;
    std::optional<S3Credentials> m_current;
};

}  // namespace storage::cloudprovider::s3
