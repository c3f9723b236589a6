// SPDX-License-Identifier: Apache-2.0
#include "digests.hpp"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace storage::cloudprovider::s3 {

namespace {

const unsigned char* toBytes(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string digest(const EVP_MD* kind, std::string_view bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> result{};
    unsigned size = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), result.data(), &size, kind, nullptr) != 1) {
        throw std::runtime_error("OpenSSL cannot compute a digest");
    }
    return {reinterpret_cast<const char*>(result.data()), size};
}

}  // namespace

std::string sha256(std::string_view bytes) {
    return digest(EVP_sha256(), bytes);
}

std::string hmacSha256(std::string_view key, std::string_view bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> result{};
    unsigned size = 0;
    if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), toBytes(bytes), bytes.size(), result.data(),
             &size) == nullptr) {
        throw std::runtime_error("OpenSSL cannot compute a message authentication code");
    }
    return {reinterpret_cast<const char*>(result.data()), size};
}

std::string md5(std::string_view bytes) {
    return digest(EVP_md5(), bytes);
}

std::string toHex(std::string_view bytes) {
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += kDigits[value >> 4U];
        text += kDigits[value & 0xFU];
    }
    return text;
}

std::string toBase64(std::string_view bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');  // EVP_EncodeBlock ends it with a NUL
    const int size =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), toBytes(bytes), static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

std::string makeRandomId() {
    std::array<unsigned char, 12> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        throw std::runtime_error("OpenSSL cannot make a random number");
    }
    auto id = toBase64({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    std::replace(id.begin(), id.end(), '+', '-');
    std::replace(id.begin(), id.end(), '/', '_');
    return id;
}

}  // namespace storage::cloudprovider::s3
