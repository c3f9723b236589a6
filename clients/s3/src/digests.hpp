// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace storage::cloudprovider::s3 {

/// The 32 bytes of a SHA-256 digest. Like all here, throws std::runtime_error when OpenSSL cannot.
std::string sha256(std::string_view bytes);

/// The 32 bytes of HMAC-SHA-256.
std::string hmacSha256(std::string_view key, std::string_view bytes);

/// The 16 bytes of an MD5 digest.
std::string md5(std::string_view bytes);

/// Bytes as lower-case hexadecimal digits.
std::string toHex(std::string_view bytes);

/// Bytes in base 64, with padding.
std::string toBase64(std::string_view bytes);

/// A fresh random name of 16 characters, from letters, digits, "-" and "_": 96 bits.
std::string makeRandomId();

}  // namespace storage::cloudprovider::s3
