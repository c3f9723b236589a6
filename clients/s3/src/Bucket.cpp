// SPDX-License-Identifier: Apache-2.0
#include "Bucket.hpp"

#include "text.hpp"

#include <stdexcept>
#include <utility>

namespace storage::cloudprovider::s3 {

Bucket::Bucket(const S3Options& options) : m_options(options), m_wire(options) {}

std::string Bucket::ownKey(const std::string& fullKey) const {
    if (!fullKey.starts_with(m_options.KeyPrefix)) {
        throw std::runtime_error("the store lists a key outside of the prefix that was asked for");
    }
    return fullKey.substr(m_options.KeyPrefix.size());
}

std::string Bucket::copySource(const std::string& key) const {
    return '/' + percentEncode(m_options.Bucket, Slash::Encode) + '/' + percentEncode(fullKey(key), Slash::Keep);
}

bool Bucket::honoursAllConditions() const {
    return m_options.HonoursAllConditions.value_or(m_wire.goesToAws());
}

S3Request Bucket::request(std::string method, const std::string& key) const {
    S3Request request;
    request.Method = std::move(method);
    request.Key = key.empty() ? key : fullKey(key);
    return request;
}

std::optional<ObjectHead> Bucket::head(const std::string& key) {
    return look(key, request("HEAD", key));
}

std::optional<ObjectHead> Bucket::look(const std::string& key, S3Request question) {
    try {
        auto head = readHead(m_wire.send(std::move(question)).Http);
        m_memory.see(key, {head.Version, head.Attributes});
        return head;
    } catch (const S3Failure& failure) {
        if (!failure.isAbsence()) {
            throw;
        }
        m_memory.forget(key);
        return std::nullopt;
    }
}

ObjectAttributes Bucket::attributesOf(const std::string& key, const std::string& version) {
    if (version.empty()) {
        return newAttributes(m_options);
    }
    const auto seen = m_memory.lastSeen(key);
    auto attributes = seen && seen->Version == version ? seen->Attributes : ObjectAttributes();
    if (!seen || seen->Version != version) {
        // Of another version: what is begun then will be refused when it is to be stored.
        const auto stored = head(key);
        attributes = stored ? stored->Attributes : newAttributes(m_options);
    }
    requireKeepable(attributes);
    return attributes;
}

Tags Bucket::tagsOf(const std::string& key, const ObjectAttributes& attributes) {
    if (attributes.TagCount == 0) {
        return {};
    }
    auto question = request("GET", key);
    question.Query = {{"tagging", ""}};
    question.Expected = S3Request::Answer::Xml;
    try {
        return readTags(m_wire.send(std::move(question)).Http.Body);
    } catch (const S3Failure& failure) {
        if (failure.hasStatus(403) && m_options.MayLoseAttributes) {
            return {};
        }
        if (failure.hasStatus(403)) {
            throw AttributesLost("its tags must not be read, and would be lost");
        }
        throw;
    }
}

void Bucket::requireKeepable(const ObjectAttributes& attributes) const {
    if (!attributes.Unkeepable.empty() && !m_options.MayLoseAttributes) {
        throw AttributesLost("it has something that an edit would lose: " + attributes.Unkeepable);
    }
}

std::string Bucket::replace(const Replacement& replacement) {
    for (bool mayChangeQuotes = true;;) {
        const bool isConditional = !replacement.Expected.isAnything();
        const bool isConditionSent = isConditional && m_conditions.areKnownTo(replacement.Kind, replacement.Expected);
        if (isConditional && (replacement.LooksFirst || !isConditionSent)) {
            requireExpected(replacement.Key, replacement.Expected);
        }
        const bool areQuoted = m_conditions.areQuoted();
        try {
            auto version = replacement.Send(isConditionSent ? m_conditions.toHeaders(replacement.Expected) : Fields());
            if (version.empty()) {
                version = findWrite(head(replacement.Key), replacement.WriteId).value_or(replacement.WriteId);
            }
            return version;
        } catch (const S3Failure& failure) {
            if (isConditionSent && failure.hasStatus(501)) {
                m_conditions.refuse(replacement.Kind, replacement.Expected);
                continue;
            }
            const bool isRefusal = failure.hasStatus(409) || failure.hasStatus(412) || failure.hasStatus(404);
            if (!isRefusal && !failure->MayHaveHappened) {
                throw;
            }
            const auto stored = head(replacement.Key);
            if (auto version = findWrite(stored, replacement.WriteId)) {
                return *std::move(version);
            }
            const auto& expected = replacement.Expected;
            const bool isMet = stored && expected.isMetBy(stored->Version);
            if (isConditionSent && failure.hasStatus(412) && isMet) {
                m_conditions.setQuoted(!areQuoted);
                if (!std::exchange(mayChangeQuotes, false)) {
                    m_conditions.refuse(replacement.Kind, expected);  // neither way, though it is what is there
                }
                continue;
            }
            if (isConditional && (failure.hasStatus(412) || (failure.isAbsence() && !stored))) {
                throw ObjectChanged(describeChange(expected, stored.has_value()));
            }
            throw;
        }
    }
}

// The version that a write stored. One that others replaced since has no name any more but that of the write, which is
// no stored object's version.
std::optional<std::string> Bucket::findWrite(const std::optional<ObjectHead>& stored,
                                             const std::string& writeId) const {
    if (!stored || !stored->Attributes.hasWrite(writeId)) {
        return std::nullopt;
    }
    return stored->Attributes.isLastWrite(writeId) ? stored->Version : writeId;
}

void Bucket::requireExpected(const std::string& key, const ExpectedObject& expected) {
    const auto stored = head(key);
    if (!expected.isMetBy(stored ? std::optional(stored->Version) : std::nullopt)) {
        throw ObjectChanged(describeChange(expected, stored.has_value()));
    }
}

void Bucket::requireSource(const std::string& key, const std::string& version) {
    const auto stored = head(key);
    if (!stored || stored->Version != version) {
        throw ObjectChanged(stored ? "what is copied was replaced meanwhile" : "what is copied was removed meanwhile");
    }
}

std::string Bucket::copyFrom(const std::string& key, const std::string& version, Copied what,
                             const std::function<std::string(const Fields& conditions)>& send) {
    if (version.empty()) {
        return send({});
    }
    const auto requireSourceAfter = [&](const S3Failure& failure) {
        if (failure.hasStatus(412) || failure.hasStatus(416) || failure.hasStatus(400) || failure.isAbsence()) {
            requireSource(key, version);
        }
    };
    if (m_conditions.areKnownOfSources()) {
        try {
            return send({{"x-amz-copy-source-if-match", '"' + version + '"'}});
        } catch (const S3Failure& failure) {
            requireSourceAfter(failure);
            if (!failure.hasStatus(412) || what == Copied::ConditionalObject) {
                throw;
            }
            m_conditions.refuseOfSources();
        }
    }
    std::string etag;
    try {
        etag = send({});
    } catch (const S3Failure& failure) {
        requireSourceAfter(failure);
        throw;
    }
    if (what == Copied::Part) {
        requireSource(key, version);
    }
    return etag;
}

std::string describeChange(const ExpectedObject& expected, bool isStored) {
    return expected.isAbsent() ? "it was created meanwhile"
           : isStored          ? "it was replaced meanwhile"
                               : "it was removed meanwhile";
}

}  // namespace storage::cloudprovider::s3
