// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/s3/S3Client.hpp>

#include <iostream>

using namespace storage::cloudprovider;

int main() {
    S3Options options;
    options.Bucket = "bucket";
    options.Endpoint = "http://127.0.0.1:1";  // where nobody listens
    options.Anonymous = true;
    options.MostTries = 1;
    try {
        S3Client(options).getObjectInfo("today.txt");
    } catch (const CloudException& error) {
        std::cout << error.what() << '\n';
        return 0;
    }
    return 1;
}
