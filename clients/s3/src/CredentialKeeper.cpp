// SPDX-License-Identifier: Apache-2.0
#include "CredentialKeeper.hpp"

namespace storage::cloudprovider::s3 {

namespace {

constexpr std::chrono::minutes kRenewedBefore(5);

bool isFresh(const S3Credentials& credentials) {
    return !credentials.Expires || *credentials.Expires - std::chrono::system_clock::now() > kRenewedBefore;
}

}  // namespace

CredentialKeeper::CredentialKeeper(const S3Options& options)
    : m_source(options.Anonymous ? nullptr : options.CredentialSource) {
    if (!options.Anonymous && !m_source) {
        m_current = options.Credentials;
    }
}

std::optional<S3Credentials> CredentialKeeper::get() {
    {
        const foundation::MutexLock lock(m_mutex);
        if (!m_source || (m_current && isFresh(*m_current))) {
            return m_current;
        }
    }
    auto fresh = m_source();
    const foundation::MutexLock lock(m_mutex);
    m_current = fresh;
    return fresh;
}

bool CredentialKeeper::renew() {
    const foundation::MutexLock lock(m_mutex);
    if (m_source) {
        m_current.reset();
    }
    return m_source != nullptr;
}

}  // namespace storage::cloudprovider::s3
