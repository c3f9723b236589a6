// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/s3/S3Options.hpp>

#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>

namespace storage::cloudprovider::test {

/// A setting of the environment, which ./dev test-s3 makes. Throws when it is missing.
inline std::string setting(const char* name) {
    const char* const value = std::getenv(name);
    if (value == nullptr) {
        throw std::runtime_error(std::string(name) + " is not set");
    }
    return value;
}

/// Options of a client of the server that the environment names, below a prefix that nobody else has.
inline S3Options serverOptions(const std::string& folder) {
    std::random_device random;
    S3Options options;
    options.Endpoint = setting("S3_ENDPOINT");
    options.Credentials = S3Credentials{setting("S3_ACCESS_KEY"), setting("S3_SECRET_KEY"), {}, {}};
    options.Region = setting("S3_REGION");
    options.Bucket = setting("S3_BUCKET");
    options.KeyPrefix = folder + '/' + std::to_string(random()) + std::to_string(random()) + '/';
    return options;
}

}  // namespace storage::cloudprovider::test
