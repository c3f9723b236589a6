// SPDX-License-Identifier: Apache-2.0
#include "Download.hpp"

#include "text.hpp"

#include <ostream>
#include <utility>

namespace storage::cloudprovider::s3 {

namespace {

[[noreturn]] void fail(const std::string& text) {
    FailureDetails failure;
    failure.Message = text;
    throw S3Failure(std::move(failure));
}

[[noreturn]] void breakOff(const char* text) {
    throw TransportFailure(text, TransportFailure::Reached::Maybe, TransportFailure::Repeat::MayHelp);
}

}  // namespace

Download::Download(Bucket& bucket, const std::string& key, std::string version, std::ostream& sink)
    : m_bucket(bucket), m_key(key), m_sink(sink), m_isOfVersion(!version.empty()), m_version(std::move(version)) {}

void Download::getWhole() {
    run();
}

void Download::getRange(std::uint64_t first, std::uint64_t size) {
    m_first = first;
    m_size = size;
    run();
}

void Download::run() {
    auto request = m_bucket.request("GET", m_key);
    request.Headers = makeHeaders();
    request.Sink = this;
    request.Renew = [this](S3Request& renewed) {
        if (m_written != 0 && m_version.empty()) {
            fail("the transfer broke off, and cannot go on without a version of the object");
        }
        renewed.Headers = makeHeaders();
    };
    try {
        m_bucket.wire().send(std::move(request));
    } catch (const S3Failure& failure) {
        const bool isBound = m_isOfVersion || m_written != 0;
        if (isBound && (failure.hasStatus(412) || failure.isAbsence())) {
            throw ObjectChanged(describeChange(ExpectedObject::version(m_version), !failure.isAbsence()));
        }
        throw;
    }
    if (m_size && m_written < *m_size) {
        fail("it ended after " + std::to_string(m_written) + " of " + std::to_string(*m_size) + " bytes");
    }
}

Fields Download::makeHeaders() const {
    Fields headers;
    if (!m_version.empty()) {
        headers.emplace_back("If-Match", '"' + m_version + '"');
    }
    if (m_size || m_written != 0) {
        const auto last = m_size ? std::to_string(m_first + *m_size - 1) : std::string();
        headers.emplace_back("Range", "bytes=" + std::to_string(m_first + m_written) + '-' + last);
    }
    return headers;
}

void Download::begin(const HttpResponse& response) {
    const auto version = toVersion(response.header("etag"));
    if (!m_version.empty() && version != m_version) {
        throw ObjectChanged(describeChange(ExpectedObject::version(m_version), true));
    }
    m_version = version;
    const auto length = toNumber(response.header("content-length"));
    if (m_size || m_written != 0) {
        checkRange(response);
    } else {
        m_size = length;
    }
    if (length && m_size && *length != *m_size - m_written) {
        breakOff("the answer has another length than what was asked for");
    }
}

// "bytes 5-9/100"
void Download::checkRange(const HttpResponse& response) const {
    const auto& range = response.header("content-range");
    const auto blank = range.find(' ');
    const auto dash = range.find('-');
    const auto slash = range.find('/');
    if (response.Status != 206 || blank == range.npos || dash == range.npos || slash == range.npos) {
        fail("the store does not give ranges");
    }
    const auto first = toNumber(std::string_view(range).substr(blank + 1, dash - blank - 1));
    const auto last = toNumber(std::string_view(range).substr(dash + 1, slash - dash - 1));
    if (first != m_first + m_written || !last) {
        breakOff("the answer is another range than what was asked for");
    }
    if (m_size && *last + 1 != m_first + *m_size) {
        fail("it has only the bytes up to " + std::to_string(*last) + ", not those from " + std::to_string(m_first) +
             " to " + std::to_string(m_first + *m_size - 1));
    }
}

void Download::write(std::string_view bytes) {
    if (m_size && bytes.size() > *m_size - m_written) {
        breakOff("the answer is longer than what was asked for");
    }
    m_sink.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!m_sink) {
        fail("what was read cannot be written to its destination");
    }
    m_written += bytes.size();
}

}  // namespace storage::cloudprovider::s3
