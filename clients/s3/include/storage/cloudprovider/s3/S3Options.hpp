// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/s3/export.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace storage::cloudprovider {

/// Who asks. Neither key nor token appears in any text of this library.
struct S3Credentials {
    std::string AccessKey;     ///< the id of the key
    std::string SecretKey;     ///< what requests are signed with; never sent
    std::string SessionToken;  ///< empty: none
    /// When they cease to be valid; nothing: they do not.
    std::optional<std::chrono::system_clock::time_point> Expires;
};

/// Where the bucket's name stands in a URL.
enum class S3Addressing : std::uint8_t {
    Automatic,   ///< in the host's name on amazonaws.com, unless the name has a dot in it; else in the path
    Path,        ///< https://endpoint/bucket/key
    VirtualHost  ///< https://bucket.endpoint/key; a name with a dot in it goes into the path over TLS all the same,
                 ///< since no certificate covers it
};

/// Where a bucket is, who asks, and how. What is empty is looked up when the client is made.
struct S3Options {
    /// The bucket's name; it has to exist. The only setting without a default.
    std::string Bucket;
    /// Put in front of each key, as it is, and taken off listed ones: the store is what lies below it. Usually ends in
    /// "/".
    std::string KeyPrefix;
    /// Such as https://s3.example.org:9000 or http://[::1]:8080. Empty: AWS_ENDPOINT_URL_S3, AWS_ENDPOINT_URL, the
    /// profile's endpoint_url, else AWS's own endpoint of the region.
    std::string Endpoint;
    /// Empty: AWS_REGION, AWS_DEFAULT_REGION, the profile's, else us-east-1. A store that names another one is
    /// believed.
    std::string Region;
    /// Where the bucket's name stands in a URL.
    S3Addressing Addressing = S3Addressing::Automatic;

    /// Empty, with no CredentialSource: AWS_ACCESS_KEY_ID, AWS_SECRET_ACCESS_KEY and AWS_SESSION_TOKEN, else the
    /// profile in ~/.aws/credentials and ~/.aws/config (AWS_SHARED_CREDENTIALS_FILE, AWS_CONFIG_FILE). A profile that
    /// asks for a single sign-on, a role, a web identity or a process is refused: have a CredentialSource do that.
    std::optional<S3Credentials> Credentials;
    /// Answers credentials; asked again five minutes before they expire, and when the store says that they have.
    /// Several threads may call it at once. What it throws comes out of the operation.
    std::function<S3Credentials()> CredentialSource;
    /// Empty: AWS_PROFILE, else "default".
    std::string Profile;
    /// Sign nothing: for public buckets.
    bool Anonymous = false;
    /// Whoever asks pays, for buckets that want it so.
    bool RequesterPays = false;

    /// The storage class of objects that are made; an edit keeps what the object has. Empty: the bucket's own.
    std::string StorageClass;
    /// How objects that are made are encrypted: AES256, aws:kms or aws:kms:dsse; an edit keeps what the object has.
    /// Empty: as the bucket has it.
    std::string Encryption;
    /// The key's id or ARN, for aws:kms and aws:kms:dsse.
    std::string EncryptionKeyId;
    /// Edit objects also when that loses what cannot be kept: retention and legal holds, tags that must not be read,
    /// metadata that the store cannot tell. Otherwise the edit is an UnsupportedOperationException.
    bool MayLoseAttributes = false;

    /// Certificates to trust, in PEM; empty: the system's.
    std::string CaFile;
    /// Whether to check who is at the other end of TLS.
    bool VerifyTls = true;
    /// How long to wait for a connection.
    std::chrono::milliseconds ConnectTimeout = std::chrono::seconds(10);
    /// A transfer that moves less than 1 KiB/s for so long is broken off and tried again.
    std::chrono::milliseconds StallTimeout = std::chrono::seconds(20);
    /// How long the store may take to answer to a copy or the completion of an upload, which move nothing meanwhile.
    std::chrono::milliseconds AnswerTimeout = std::chrono::minutes(5);
    /// Most connections at once; who needs one more waits. Each may hold one part, or one object that is put, in
    /// memory.
    std::size_t Connections = 32;
    /// How often a request is tried, at least once.
    unsigned MostTries = 10;
    /// The longest wait between two tries. Waits are random, below a bound that starts at 100 ms and doubles.
    std::chrono::milliseconds LongestWait = std::chrono::seconds(30);

    /// How large the parts are that objects are described in, in bytes; at least 5 MiB. Objects that would have more
    /// than 9,000 get larger ones, in whole MiB.
    std::uint64_t PartSize = 5 * 1024 * 1024;
    /// Whether the store heeds If-Match and If-None-Match when it completes an upload or copies, so that nothing needs
    /// to be looked up before. Nothing: on amazonaws.com it does, elsewhere it is not relied on.
    std::optional<bool> HonoursAllConditions;
};

}  // namespace storage::cloudprovider
