// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/s3/S3Client.hpp>

#include "Bucket.hpp"
#include "Download.hpp"
#include "descriptions.hpp"
#include "limits.hpp"
#include "listing.hpp"
#include "objects.hpp"
#include "s3Errors.hpp"
#include "settings.hpp"
#include "text.hpp"
#include "uploads.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>
#include <ostream>
#include <stdexcept>
#include <utility>

namespace storage::cloudprovider {

using foundation::storage::provider::ExceptionContext;
using s3::Bucket;

/// The only place where failures become CloudExceptions.
class S3Client::Implementation {
public:
    explicit Implementation(const S3Options& options) : m_bucket(options) {}

    /// Run an action; what it throws comes out as the CloudException that fits.
    template <class Action>
    auto run(const char* step, const std::string& key, const Action& action) {
        try {
            return action(m_bucket);
        } catch (const CloudException&) {
            throw;  // of whoever answers credentials
        } catch (const s3::S3Failure& failure) {
            s3::throwCloudException(describe(step, key), failure);
        } catch (const s3::ObjectChanged& change) {
            throw ResourceInUseException(ExceptionContext(describe(step, key) + ": " + change.what()));
        } catch (const s3::AttributesLost& loss) {
            throw UnsupportedOperationException(ExceptionContext(describe(step, key) + ": " + loss.what()));
        } catch (const std::runtime_error& failure) {
            throw UnknownErrorException(ExceptionContext(describe(step, key) + ": " + failure.what()));
        }
    }

    /// Likewise for an action that writes a key.
    template <class Action>
    auto write(const char* step, const std::string& key, const Action& action) {
        requireKey(step, key);
        return run(step, key, action);
    }

    void requireKey(const char* step, const std::string& key) const {
        const auto longest = s3::kLongestKey - std::min(s3::kLongestKey, m_bucket.options().KeyPrefix.size());
        const char* const reason = key.empty()                           ? "a key must not be empty"
                                   : key.size() > longest                ? "the key is too long"
                                   : key.find('\0') != std::string::npos ? "a key must not have a NUL byte"
                                   : !s3::isUtf8(key)                    ? "a key must be UTF-8"
                                                                         : nullptr;
        if (reason != nullptr) {
            throw InvalidLocationException(ExceptionContext(describe(step, key) + ": " + reason));
        }
    }

    const Bucket& bucket() const noexcept { return m_bucket; }
    Bucket& bucket() noexcept { return m_bucket; }

private:
    std::string describe(const char* step, const std::string& key) const {
        const auto& options = m_bucket.options();
        return std::string("cannot ") + step + (key.empty() ? "" : " \"" + key + "\" in") + " s3://" + options.Bucket +
               (options.KeyPrefix.empty() ? "" : '/' + options.KeyPrefix);
    }

    Bucket m_bucket;
};

S3Client::S3Client(const S3Options& options)
    : m_implementation(std::make_unique<Implementation>(s3::completeOptions(options, s3::processEnvironment()))) {}

S3Client::~S3Client() = default;

S3Traffic S3Client::traffic() const {
    const auto& traffic = m_implementation->bucket().wire().traffic();
    return {traffic.Requests, traffic.Sent, traffic.Received};
}

boost::optional<ObjectInfo> S3Client::getObjectInfo(const std::string& key) {
    return m_implementation->run("look up", key, [&](Bucket& bucket) -> boost::optional<ObjectInfo> {
        const auto head = key.empty() ? std::nullopt : bucket.head(key);
        return head ? boost::optional<ObjectInfo>({key, head->Size, head->LastModified}) : boost::none;
    });
}

void S3Client::checkObjectName(const std::string& name) {
    m_implementation->requireKey("name an object", name);
}

std::vector<ObjectInfo> S3Client::listObjects(const std::string& prefix, std::string& token,
                                              const ListOptions& options) {
    return m_implementation->run("list", prefix,
                                 [&](Bucket& bucket) { return s3::listObjects(bucket, prefix, token, options); });
}

void S3Client::deleteObject(const std::string& key) {
    m_implementation->write("remove", key, [&](Bucket& bucket) { s3::deleteObject(bucket, key); });
}

void S3Client::getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) {
    m_implementation->write("get", key, [&](Bucket& bucket) {
        s3::Download download(bucket, key, {}, sink);
        if (first == 0 && last == 0) {
            download.getWhole();
        } else if (first > last) {
            throw std::runtime_error("a range cannot end before it begins");
        } else {
            download.getRange(first, last - first + 1);
        }
    });
}

void S3Client::putObject(const std::string& key, std::istream& data, std::uint64_t size) {
    putObjectOver(key, data, size, ExpectedObject::anything());
}

std::vector<PartInfo> S3Client::getObjectParts(const std::string& key) {
    auto object = describeObject(key);
    return object && object->Parts.size() > 1 ? std::move(object->Parts) : std::vector<PartInfo>();
}

std::string S3Client::startMultipartUpload(const std::string& key, const std::string& lastTag) {
    return m_implementation->write("begin to upload", key, [&](Bucket& bucket) {
        // An object that this client stored since it was described has no tag to be known by.
        auto base = s3::versionOfTag(lastTag);
        const auto seen = base.empty() ? bucket.memory().lastSeen(key) : std::nullopt;
        base = seen && seen->IsOurs ? seen->Version : base;
        const auto attributes = bucket.attributesOf(key, base);
        return s3::startUpload(bucket, key, attributes, bucket.tagsOf(key, attributes), base);
    });
}

std::string S3Client::uploadPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                 std::istream& data) {
    return m_implementation->write("upload a part of", key,
                                   [&](Bucket& bucket) { return s3::sendPart(bucket, key, uploadId, part, data); });
}

std::string S3Client::copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) {
    return copyRange(key, uploadId, part, s3::versionOfTag(part.Tag));
}

void S3Client::abortMultipartUpload(const std::string& key, const std::string& uploadId) {
    m_implementation->write("give up an upload of", key,
                            [&](Bucket& bucket) { s3::abortUpload(bucket, key, uploadId); });
}

void S3Client::completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                       const std::vector<PartInfo>& parts) {
    completeUploadOver(key, uploadId, parts, ExpectedObject::anything());
}

std::optional<ObjectDescription> S3Client::describeObject(const std::string& key) {
    return m_implementation->run("look up", key, [&](Bucket& bucket) {
        const auto head = key.empty() ? std::nullopt : bucket.head(key);
        return head ? std::optional(s3::describe(bucket, key, *head)) : std::nullopt;
    });
}

std::optional<ObjectDescription> S3Client::describeWithStart(const std::string& key, std::uint64_t most,
                                                             std::string& start) {
    return m_implementation->run("look up", key, [&](Bucket& bucket) {
        const auto head = key.empty() ? std::nullopt : s3::headWithStart(bucket, key, most, start);
        return head ? std::optional(s3::describe(bucket, key, *head)) : std::nullopt;
    });
}

void S3Client::getRange(const std::string& key, const std::string& version, const ObjectRange& range,
                        std::ostream& sink) {
    m_implementation->write("get", key, [&](Bucket& bucket) {
        s3::Download(bucket, key, version, sink).getRange(range.First, range.Size);
    });
}

std::string S3Client::copyRange(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                const std::string& version) {
    return copyRun(key, uploadId, {part}, version).front().Tag;
}

std::vector<PartInfo> S3Client::copyRun(const std::string& key, const std::string& uploadId,
                                        const std::vector<PartInfo>& run, const std::string& version) {
    return m_implementation->write("copy a part of", key, [&](Bucket& bucket) {
        auto source = version;
        if (source.empty()) {
            const auto head = bucket.head(key);
            if (!head) {
                throw s3::noSuchObject();
            }
            source = head->Version;
        }
        return s3::copyParts(bucket, key, source, key, uploadId, run);
    });
}

std::string S3Client::putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                                    const ExpectedObject& expected) {
    return m_implementation->write("put", key,
                                   [&](Bucket& bucket) { return s3::putObject(bucket, key, data, size, expected); });
}

std::string S3Client::completeUploadOver(const std::string& key, const std::string& uploadId,
                                         const std::vector<PartInfo>& parts, const ExpectedObject& expected) {
    return m_implementation->write("complete the upload of", key, [&](Bucket& bucket) {
        return s3::completeUpload(bucket, key, uploadId, parts, expected);
    });
}

bool S3Client::copyObject(const std::string& from, const std::string& fromVersion, const std::string& to,
                          const ExpectedObject& expected) {
    m_implementation->requireKey("copy to", to);
    m_implementation->write("copy", from, [&](Bucket& bucket) {
        const auto source = bucket.head(from);
        if (!source && fromVersion.empty()) {
            throw s3::noSuchObject();
        }
        if (!source || (!fromVersion.empty() && source->Version != fromVersion)) {
            throw s3::ObjectChanged(s3::describeChange(ExpectedObject::version(fromVersion), source.has_value()));
        }
        bucket.requireKeepable(source->Attributes);
        if (source->Size <= s3::kLargestPart) {
            s3::copyWhole(bucket, from, *source, to, expected);
        } else {
            s3::copyInParts(bucket, from, *source, to, expected);
        }
    });
    return true;
}

void S3Client::removeObject(const std::string& key, const std::string& version) {
    m_implementation->write("remove", key, [&](Bucket& bucket) {
        bucket.requireExpected(key, ExpectedObject::version(version));
        s3::deleteObject(bucket, key);
    });
}

void S3Client::deleteObjects(const std::vector<std::string>& keys) {
    for (const auto& key : keys) {
        m_implementation->requireKey("remove", key);
    }
    m_implementation->run("remove objects of", {}, [&](Bucket& bucket) { s3::deleteObjects(bucket, keys); });
}

std::vector<UnfinishedUpload> S3Client::listUploads(const std::string& prefix, std::string& token) {
    return m_implementation->run("list the uploads of", prefix,
                                 [&](Bucket& bucket) { return s3::listUploads(bucket, prefix, token); });
}

StoreLimits S3Client::limits() const {
    const auto& options = m_implementation->bucket().options();
    StoreLimits limits;
    limits.UsefulUploads = std::max<std::size_t>(options.Connections, 1);
    limits.UsefulDownloads = limits.UsefulUploads;
    limits.SmallestPart = s3::kSmallestPart;
    limits.LargestPart = s3::kLargestPart;
    limits.MostParts = s3::kMostParts;
    limits.LargestObject = s3::kLargestObject;
    limits.LargestPut = s3::kLargestPart;
    limits.LongestKey = s3::kLongestKey - std::min(s3::kLongestKey, options.KeyPrefix.size());
    limits.DeletedAtOnce = s3::kDeletedAtOnce;
    return limits;
}

}  // namespace storage::cloudprovider
