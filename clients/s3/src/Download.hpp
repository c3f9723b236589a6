// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Bucket.hpp"
#include "HttpConnection.hpp"

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

namespace storage::cloudprovider::s3 {

/// Writes an object, or a range of it, to a sink. A transfer that breaks off goes on after what was written, in the
/// same version: no byte is written twice. One thread, one download.
class Download : private BodySink {
public:
    /// Values   version: only that one; empty: whatever is stored when it begins.
    Download(Bucket& bucket, const std::string& key, std::string version, std::ostream& sink);

    void getWhole();
    /// Values   size: not 0. Fewer bytes are an S3Failure.
    void getRange(std::uint64_t first, std::uint64_t size);

private:
    void begin(const HttpResponse& response) override;
    void write(std::string_view bytes) override;
    void run();
    Fields makeHeaders() const;
    void checkRange(const HttpResponse& response) const;

    Bucket& m_bucket;
    const std::string& m_key;
    std::ostream& m_sink;
    const bool m_isOfVersion;
    std::string m_version;
    std::uint64_t m_first = 0;
    std::optional<std::uint64_t> m_size;  // nothing: to the object's end, wherever that is
    std::uint64_t m_written = 0;
};

}  // namespace storage::cloudprovider::s3
