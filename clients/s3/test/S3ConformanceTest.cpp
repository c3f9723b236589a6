// SPDX-License-Identifier: Apache-2.0
// The conformance suite on a real server: S3_ENDPOINT, S3_ACCESS_KEY, S3_SECRET_KEY, S3_REGION and S3_BUCKET name it;
// S3_IGNORES_COPY_CONDITIONS is set for one that copies parts of any version. Each test works below a prefix of its
// own, and leaves there what it stored.
#include <storage/cloudprovider/s3/S3Client.hpp>
#include <storage/cloudprovider/testing/ClientConformance.hpp>

#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

namespace storage::cloudprovider::test {

namespace {

std::string setting(const char* name) {
    const char* const value = std::getenv(name);
    if (value == nullptr) {
        throw std::runtime_error(std::string(name) + " is not set");
    }
    return value;
}

std::shared_ptr<CloudClient> makeClient() {
    std::random_device random;
    S3Options options;
    options.Endpoint = setting("S3_ENDPOINT");
    options.Credentials = S3Credentials{setting("S3_ACCESS_KEY"), setting("S3_SECRET_KEY"), {}, {}};
    options.Region = setting("S3_REGION");
    options.Bucket = setting("S3_BUCKET");
    options.KeyPrefix = "conformance/" + std::to_string(random()) + std::to_string(random()) + '/';
    return std::make_shared<S3Client>(options);
}

// As Ceph's gateway does.
bool ignoresCopyConditions() {
    return std::getenv("S3_IGNORES_COPY_CONDITIONS") != nullptr;
}

const ClientUnderTest kS3Client{.name = "S3Client",
                                .make = makeClient,
                                .minPartSize = 5 * 1024 * 1024,
                                .takesAnyBytesInKeys = false,
                                .missesDeleted = false,
                                .refusesReplacedParts = !ignoresCopyConditions(),
                                .tellsVersions = true,
                                .namesContents = true,
                                .describesUploadedParts = false,
                                .refusesCopiesLate = ignoresCopyConditions(),
                                .repeatsCompletions = true,
                                .copiesInStore = true};

}  // namespace

INSTANTIATE_TEST_SUITE_P(S3, ClientConformance, ::testing::Values(kS3Client), clientName);

}  // namespace storage::cloudprovider::test
