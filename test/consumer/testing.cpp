// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/testing/ClientConformance.hpp>
#include <storage/cloudprovider/testing/FakeCloudClient.hpp>

#include <gtest/gtest.h>

#include <memory>

using namespace storage::cloudprovider::test;

const ClientUnderTest kFake{.name = "Fake", .make = [] { return std::make_shared<FakeCloudClient>(); }};

INSTANTIATE_TEST_SUITE_P(Consumer, ClientConformance, ::testing::Values(kFake), clientName);

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
