// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Conditions.hpp"
#include "ObjectMemory.hpp"
#include "S3Wire.hpp"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace storage::cloudprovider::s3 {

/// What all operations of a client share: the wire, keys as the bucket has them, what is remembered, and how an object
/// is replaced. Threads: any.
///
/// Keys are the client's own, without the prefix, unless they are called full ones.
class Bucket {
public:
    /// Values   options: completed ones.
    explicit Bucket(const S3Options& options);

    const S3Options& options() const noexcept { return m_options; }
    S3Wire& wire() noexcept { return m_wire; }
    ObjectMemory& memory() noexcept { return m_memory; }
    Conditions& conditions() noexcept { return m_conditions; }

    std::string fullKey(const std::string& key) const { return m_options.KeyPrefix + key; }
    /// Throws std::runtime_error when the full key does not have the prefix.
    std::string ownKey(const std::string& fullKey) const;
    /// The value of x-amz-copy-source.
    std::string copySource(const std::string& key) const;
    /// Whether every write and copy heeds its conditions, so that nothing needs to be looked up before.
    bool honoursAllConditions() const;

    /// A request for an object, or with an empty key for the bucket.
    S3Request request(std::string method, const std::string& key) const;

    /// What is stored; nothing when there is no such object.
    std::optional<ObjectHead> head(const std::string& key);
    /// Likewise by a question of the caller's, whose answer has the headers of a HEAD's.
    std::optional<ObjectHead> look(const std::string& key, S3Request question);

    /// What an edit of a version of the object keeps; of an empty one what a new object has. Throws AttributesLost when
    /// something cannot be kept and options do not allow that.
    ObjectAttributes attributesOf(const std::string& key, const std::string& version);
    /// The tags of an object that has some.
    Tags tagsOf(const std::string& key, const ObjectAttributes& attributes);
    void requireKeepable(const ObjectAttributes& attributes) const;

    /// Replace an object if what is there is what is expected.
    struct Replacement {
        const std::string& Key;
        const std::string& WriteId;  ///< that the write puts into the object's metadata
        const ExpectedObject& Expected;
        Conditions::Write Kind;
        /// Whether to look at what is there before; else that is left to the condition.
        bool LooksFirst = false;
        /// Sends the request with those conditions, and answers the version; empty: the answer did not tell.
        std::function<std::string(const Fields& conditions)> Send;
    };

    /// Answers the version that was stored, also when only a lost answer told so, or others have replaced it since.
    ///
    /// Errors   ObjectChanged when something else is there; S3Failure.
    std::string replace(const Replacement& replacement);

    /// Throw ObjectChanged unless what is there is what is expected.
    void requireExpected(const std::string& key, const ExpectedObject& expected);
    /// Likewise of what is copied, which has to have that version.
    void requireSource(const std::string& key, const std::string& version);

    /// Copy from a version of an object. A store that refuses the version though it is there is not asked again to
    /// check it: for parts it is looked up after the copy then, which nobody sees before it is completed.
    ///
    /// Values   version: empty: whatever is there. what: ConditionalObject where a refusal may be about something else
    /// than the source.
    ///          send: sends the request with those conditions, and answers the ETag.
    enum class Copied : std::uint8_t { Part, Object, ConditionalObject };
    std::string copyFrom(const std::string& key, const std::string& version, Copied what,
                         const std::function<std::string(const Fields& conditions)>& send);

private:
    std::optional<std::string> findWrite(const std::optional<ObjectHead>& stored, const std::string& writeId) const;

    const S3Options m_options;
    S3Wire m_wire;
    ObjectMemory m_memory;
    Conditions m_conditions;
};

/// What became of an object that is not the expected one, such as "it was replaced meanwhile".
std::string describeChange(const ExpectedObject& expected, bool isStored);

}  // namespace storage::cloudprovider::s3
