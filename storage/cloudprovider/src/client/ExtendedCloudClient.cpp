// SPDX-License-Identifier: Apache-2.0
#include "support/host.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <boost/iostreams/categories.hpp>
#include <boost/iostreams/stream.hpp>

#include <algorithm>
#include <ostream>
#include <utility>

namespace storage::cloudprovider {

namespace {

// Passes the first bytes on and drops the rest.
class PrefixSink {
public:
    using char_type = char;
    using category = boost::iostreams::sink_tag;

    PrefixSink(std::ostream& sink, std::uint64_t size) : m_sink(&sink), m_left(size) {}

    std::streamsize write(const char* bytes, std::streamsize count) {
        const auto passed = std::min(m_left, static_cast<std::uint64_t>(count));
        m_sink->write(bytes, static_cast<std::streamsize>(passed));
        m_left -= passed;
        return count;
    }

private:
    std::ostream* m_sink;
    std::uint64_t m_left;
};

}  // namespace

ExpectedObject::ExpectedObject(Kind kind, std::string version) : m_kind(kind), m_version(std::move(version)) {}

ExpectedObject ExpectedObject::anything() {
    return {Kind::Anything, {}};
}

ExpectedObject ExpectedObject::absent() {
    return {Kind::Absent, {}};
}

ExpectedObject ExpectedObject::version(std::string version) {
    const auto kind = version.empty() ? Kind::Anything : Kind::Version;
    return {kind, std::move(version)};
}

bool ExpectedObject::isMetBy(const std::optional<std::string>& storedVersion) const {
    return m_kind == Kind::Anything || (m_kind == Kind::Absent ? !storedVersion : storedVersion == m_version);
}

ExtendedCloudClient::~ExtendedCloudClient() = default;

std::optional<ObjectDescription> ExtendedCloudClient::describeObject(const std::string& key) {
    auto parts = getObjectParts(key);
    if (parts.empty()) {
        const auto info = getObjectInfo(key);
        if (!info) {
            return std::nullopt;
        }
        parts.push_back({0, 0, info->Size, {}});
    }
    return ObjectDescription{{}, std::move(parts)};
}

std::optional<ObjectDescription> ExtendedCloudClient::describeWithStart(const std::string& key, std::uint64_t /*most*/,
                                                                        std::string& /*start*/) {
    return describeObject(key);
}

void ExtendedCloudClient::getRange(const std::string& key, const std::string& /*version*/, const ObjectRange& range,
                                   std::ostream& sink) {
    const auto last = range.First + range.Size - 1;
    if (range.IsWhole) {
        getObject(key, sink, 0, 0);
    } else if (last == 0) {
        // To getObject the range 0..0 is the whole object, not its first byte.
        boost::iostreams::stream<PrefixSink> prefix(PrefixSink(sink, range.Size));
        getObject(key, prefix, 0, 0);
        prefix.close();
    } else {
        getObject(key, sink, range.First, last);
    }
}

std::string ExtendedCloudClient::copyRange(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                           const std::string& /*version*/) {
    return copyPart(key, uploadId, part);
}

std::vector<PartInfo> ExtendedCloudClient::copyRun(const std::string& key, const std::string& uploadId,
                                                   const std::vector<PartInfo>& run, const std::string& version) {
    auto records = run;
    for (auto& part : records) {
        part.Tag = copyRange(key, uploadId, part, version);
    }
    return records;
}

std::string ExtendedCloudClient::putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                                               const ExpectedObject& /*expected*/) {
    putObject(key, data, size);
    return {};
}

std::string ExtendedCloudClient::completeUploadOver(const std::string& key, const std::string& uploadId,
                                                    const std::vector<PartInfo>& parts,
                                                    const ExpectedObject& /*expected*/) {
    completeMultipartUpload(key, uploadId, parts);
    return {};
}

bool ExtendedCloudClient::copyObject(const std::string& /*from*/, const std::string& /*fromVersion*/,
                                     const std::string& /*to*/, const ExpectedObject& /*expected*/) {
    return false;
}

void ExtendedCloudClient::removeObject(const std::string& key, const std::string& /*version*/) {
    deleteObject(key);
}

void ExtendedCloudClient::deleteObjects(const std::vector<std::string>& keys) {
    for (const auto& key : keys) {
        try {
            deleteObject(key);
        } catch (const ResourceNotFoundException&) {
            continue;  // it is gone, which is what was asked for
        }
    }
}

std::vector<UnfinishedUpload> ExtendedCloudClient::listUploads(const std::string& /*prefix*/, std::string& /*token*/) {
    throw UnsupportedOperationException(host::ExceptionContext("this store does not tell its unfinished uploads"));
}

StoreLimits ExtendedCloudClient::limits() const {
    return {};
}

}  // namespace storage::cloudprovider
