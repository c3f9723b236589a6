// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/testing/ClientConformance.hpp>
#include <storage/cloudprovider/testing/FakeCloudClient.hpp>
#include <storage/cloudprovider/testing/VersionedFakeClient.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <thread>

namespace storage::cloudprovider::test {

namespace {

using Options = FakeCloudClient::Options;
using When = FakeCloudClient::When;
using Repeat = FakeCloudClient::Repeat;

ClientUnderTest fake(const std::string& name, const Options& options) {
    return {name, [options] { return std::make_shared<FakeCloudClient>(options); }};
}

ClientUnderTest versionedFake(const std::string& name, const Options& options) {
    return {
        .name = name,
        .make = [options] { return std::make_shared<VersionedFakeClient>(std::make_shared<FakeCloudClient>(options)); },
        .minPartSize = 1000,
        .tellsVersions = true,
        .copiesInStore = options.copiesInStore};
}

INSTANTIATE_TEST_SUITE_P(Fake, ClientConformance,
                         ::testing::Values(fake("Plain", {}), fake("TinyEmptyPages", {2, true, 1, {}}),
                                           versionedFake("Versioned", {}),
                                           versionedFake("WithoutCopies", {.copiesInStore = false})),
                         clientName);

TEST(FakeCloudClientTest, RemembersEachBreachOfTheContract) {
    FakeCloudClient client;
    client.store("k", "0123456789");
    std::istringstream data("abc");
    std::ostringstream sink;
    std::string token = "made up";
    const auto id = client.startMultipartUpload("k", {});
    const auto tag = client.uploadPart("k", id, {0, 0, 3, {}}, data);
    const std::vector<PartInfo> swapped{{1, 0, 3, tag}, {0, 3, 3, tag}};
    client.store("other", "x");
    const auto version = *client.version("k");
    const auto foreign = ExpectedObject::version(*client.version("other"));
    const std::function<void()> breaches[] = {
        [&] { client.deleteObject("/k"); },
        [&] { client.getObject("", sink, 0, 0); },
        [&] { client.getObject("k", sink, 5, 10); },
        [&] { client.getObject("k", sink, 5, 4); },
        [&] { client.listObjects("", token, {}); },
        [&] { client.putObject("p", data, 4); },
        [&] {
            client.uploadPart("other", id, {0, 0, 3, {}}, data);
        },
        [&] {
            client.uploadPart("k", id, {0, 0, 0, {}}, data);
        },
        [&] {
            client.uploadPart("k", id, {0, 0, 2, {}}, data);
        },
        [&] {
            client.uploadPart("k", id, {0, 0, 4, {}}, data);
        },
        [&] {
            client.copyPart("k", id, {1, 8, 3, {}});
        },
        [&] { client.completeMultipartUpload("k", id, {}); },
        [&] { client.completeMultipartUpload("k", id, swapped); },
        [&] {
            client.completeMultipartUpload("k", id, {{0, 0, 3, tag + "x"}});
        },
        [&] {
            client.completeMultipartUpload("k", id, {{0, 0, 4, tag}});
        },
        [&] {
            client.completeMultipartUpload("k", id, {{0, 1, 3, tag}});
        },
        [&] {
            client.getRange("k", version, {9, 2, false}, sink);
        },
        [&] {
            client.getRange("k", version, {0, 0, false}, sink);
        },
        [&] {
            client.getRange("k", version, {0, 9, true}, sink);
        },
        [&] {
            client.getRange("k", "made up", {0, 1, false}, sink);
        },
        [&] {
            client.copyRange("k", id, {1, 8, 3, {}}, version);
        },
        [&] {
            client.copyRange("k", id, {1, 0, 3, {}}, foreign.getVersion());
        },
        [&] { client.copyRun("k", id, {}, version); },
        [&] {
            client.copyRun("k", id, {{0, 0, 3, {}}, {1, 4, 3, {}}}, version);
        },
        [&] {
            client.copyRun("k", id, {{0, 0, 3, {}}, {1, 3, 8, {}}}, version);
        },
        [&] { client.copyObject("k", foreign.getVersion(), "to", ExpectedObject::anything()); },
        [&] { client.copyObject("k", version, "k", ExpectedObject::anything()); },
        [&] { client.copyObject("k", version, "/to", ExpectedObject::anything()); },
        [&] { client.removeObject("k", foreign.getVersion()); },
        [&] { client.putObjectOver("k", data, 3, foreign); },
        [&] {
            client.completeUploadOver("k", id, {{0, 0, 3, tag}}, foreign);
        },
        [&] { client.completeUploadOver("k", id, swapped, ExpectedObject::anything()); },
    };
    std::size_t expected = 0;
    for (const auto& breach : breaches) {
        data.clear();
        data.seekg(0);
        EXPECT_THROW(breach(), std::logic_error) << expected;
        EXPECT_EQ(client.violations().size(), ++expected);
    }
    EXPECT_EQ(client.content("k"), "0123456789");
    client.completeMultipartUpload("k", id, {{0, 0, 3, tag}});
    EXPECT_EQ(client.content("k"), "abc");
    EXPECT_EQ(client.openUploads(), 0U);
}

TEST(FakeCloudClientTest, FailsTheCallItIsToldTo) {
    FakeCloudClient client;
    client.store("k", "x");
    client.failCall(2);
    client.failOperation("deleteObject", 1, When::After);
    client.failOperation("getObjectParts", 2, When::Before, Repeat::Forever);
    EXPECT_TRUE(client.getObjectInfo("k"));
    EXPECT_THROW(client.getObjectInfo("k"), UnknownErrorException);
    EXPECT_TRUE(client.getObjectInfo("k"));
    EXPECT_THROW(client.deleteObject("k"), UnknownErrorException);
    EXPECT_FALSE(client.content("k")) << "failed after its work";
    EXPECT_NO_THROW(client.getObjectParts("k"));
    client.setFault([] { throw PermissionDeniedException(); });
    EXPECT_THROW(client.getObjectParts("k"), PermissionDeniedException);
    EXPECT_THROW(client.getObjectParts("k"), PermissionDeniedException);
    EXPECT_EQ(client.faultCount(), 4U);
    EXPECT_EQ(client.callCount(), 7U);
    EXPECT_EQ(client.count("getObjectInfo"), 3U);
}

TEST(FakeCloudClientTest, ClientsOfOneStoreMeetEachOthersVersionsAndItsFaults) {
    const auto store = std::make_shared<FakeCloudClient>();
    VersionedFakeClient first(store);
    VersionedFakeClient second(store);
    std::istringstream data("xy");
    std::ostringstream sink;
    const auto old = first.putObjectOver("k", data, 1, ExpectedObject::absent());
    EXPECT_EQ(second.describeObject("k")->Version, old);
    store->failOperation("putObjectOver", 1, When::After);
    EXPECT_THROW(second.putObjectOver("k", data, 1, ExpectedObject::version(old)), UnknownErrorException);
    EXPECT_EQ(store->content("k"), "y") << "failed after its work";
    store->failOperation("getRange");
    EXPECT_THROW(second.getRange("k", *store->version("k"), {0, 1, true}, sink), UnknownErrorException);
    EXPECT_THROW(first.getRange("k", old, {0, 1, true}, sink), ResourceInUseException);
    EXPECT_EQ(store->violations(), std::vector<std::string>());
    const auto calls = store->calls();
    ASSERT_EQ(calls.size(), 5U);
    EXPECT_EQ(calls[0].expected, "absent");
    EXPECT_EQ(calls[2].expected, old);
    EXPECT_EQ(calls[4].version, old);
}

TEST(FakeCloudClientTest, AGateHoldsCallsWithoutHoldingOthersUp) {
    FakeCloudClient client;
    client.store("held", "x");
    client.store("free", "y");
    auto& gate = client.gate("getObject", "held");
    std::ostringstream held;
    std::thread reader([&] { client.getObject("held", held, 0, 0); });
    EXPECT_TRUE(gate.waitForArrivals());
    std::ostringstream sink;
    client.getObject("free", sink, 0, 0);
    EXPECT_EQ(sink.str(), "y");
    client.store("held", "z");
    gate.open();
    reader.join();
    EXPECT_EQ(held.str(), "z");
}

}  // namespace

}  // namespace storage::cloudprovider::test
