// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/s3/S3Options.hpp>

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

    // Not held while the source is asked.
    foundation::Mutex m_mutex;
    std::optional<S3Credentials> m_current CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

}  // namespace storage::cloudprovider::s3
