// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/testing/ClientConformance.hpp>

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>
#include <functional>
#include <optional>
#include <ostream>
#include <set>
#include <sstream>
#include <streambuf>
#include <thread>
#include <utility>

namespace storage::cloudprovider::test {

namespace {

const std::vector<std::string> kAwkwardKeys{"plain",
                                            "with space",
                                            "quo'te\"d;--%_",
                                            "a/b/c.txt",
                                            "tab\tnew\nline\x01",
                                            "per%20cent+&?#",
                                            "\xC3\xBC/\xE6\x97\xA5\xF0\x9F\x98\x80"};

// Bytes of every value that do not repeat with any part's size.
std::string pattern(std::uint64_t size, unsigned int seed) {
    std::string bytes(size, '\0');
    std::uint32_t state = seed + 1;
    for (auto& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    return bytes;
}

std::uint64_t endOf(const std::vector<PartInfo>& parts) {
    return parts.empty() ? 0 : parts.back().Offset + parts.back().Size;
}

void expectCovered(const std::vector<PartInfo>& layout, std::uint64_t size) {
    std::uint64_t end = 0;
    std::uint64_t index = 0;
    for (const auto& part : layout) {
        EXPECT_EQ(part.Index, index++);
        EXPECT_EQ(part.Offset, end) << "part " << part.Index << " does not begin where the one before ends";
        EXPECT_TRUE(part.Size > 0 || size == 0) << "part " << part.Index << " has no bytes";
        end += part.Size;
    }
    EXPECT_EQ(end, size) << "the parts do not have as many bytes as the object";
}

std::vector<std::string> keysOf(const std::vector<ObjectInfo>& entries) {
    std::vector<std::string> keys;
    keys.reserve(entries.size());
    for (const auto& entry : entries) {
        keys.push_back(entry.Key);
    }
    return keys;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const ClientUnderTest& client) {
    return stream << client.name;
}

std::string clientName(const ::testing::TestParamInfo<ClientUnderTest>& info) {
    return info.param.name;
}

void ClientConformance::SetUp() {
    m_client = GetParam().make();
    ASSERT_TRUE(m_client);
}

std::shared_ptr<ExtendedCloudClient> ClientConformance::versioned() const {
    const auto client = std::dynamic_pointer_cast<ExtendedCloudClient>(m_client);
    EXPECT_TRUE(client || !GetParam().tellsVersions);
    return GetParam().tellsVersions ? client : nullptr;
}

void ClientConformance::put(const std::string& key, const std::string& bytes) {
    std::istringstream data(bytes);
    m_client->putObject(key, data, bytes.size());
}

std::string ClientConformance::get(const std::string& key, std::uint64_t first, std::uint64_t last) {
    std::ostringstream sink;
    m_client->getObject(key, sink, first, last);
    return sink.str();
}

std::vector<ObjectInfo> ClientConformance::list(const std::string& prefix, const std::string& delimiter, int maxKeys) {
    std::vector<ObjectInfo> entries;
    std::string token;
    do {
        auto sameToken = token;
        const auto page = m_client->listObjects(prefix, token, ListOptions{delimiter, maxKeys});
        if (maxKeys == 2) {
            const auto again = m_client->listObjects(prefix, sameToken, ListOptions{delimiter, maxKeys});
            EXPECT_EQ(keysOf(again), keysOf(page)) << "a token may be used again";
        }
        EXPECT_TRUE(maxKeys < 0 || page.size() <= static_cast<std::size_t>(maxKeys));
        entries.insert(entries.end(), page.begin(), page.end());
    } while (!token.empty());
    return entries;
}

void ClientConformance::send(const std::string& key, const std::string& id, std::vector<PartInfo>& parts,
                             const std::string& bytes) {
    PartInfo part{parts.size(), endOf(parts), bytes.size(), {}};
    std::istringstream data(bytes);
    part.Tag = m_client->uploadPart(key, id, part, data);
    parts.push_back(part);
}

void ClientConformance::copy(const std::string& key, const std::string& id, std::vector<PartInfo>& parts,
                             std::uint64_t size) {
    PartInfo part{parts.size(), endOf(parts), size, {}};
    part.Tag = m_client->copyPart(key, id, part);
    parts.push_back(part);
}

std::string ClientConformance::storeParts(const std::string& key) {
    const auto partSize = GetParam().minPartSize;
    const auto id = m_client->startMultipartUpload(key, {});
    std::vector<PartInfo> parts;
    std::string whole;
    for (const auto size : {partSize, partSize, std::uint64_t{7}}) {
        const auto bytes = pattern(size, static_cast<unsigned int>(parts.size()));
        send(key, id, parts, bytes);
        whole += bytes;
    }
    m_client->completeMultipartUpload(key, id, parts);
    return whole;
}

TEST_P(ClientConformance, KeepsBytesUnderAnyKey) {
    for (const auto& key : kAwkwardKeys) {
        for (const auto& bytes : {std::string(), std::string("x"), std::string("\0\n\xFF", 3), pattern(70'000, 1)}) {
            SCOPED_TRACE(key + ", " + std::to_string(bytes.size()) + " bytes");
            put(key, bytes);
            const auto info = m_client->getObjectInfo(key);
            ASSERT_TRUE(info);
            EXPECT_EQ(info->Key, key);
            EXPECT_EQ(info->Size, bytes.size());
            EXPECT_FALSE(info->LastModified.is_special());
            EXPECT_EQ(get(key), bytes);
        }
    }
    auto sorted = kAwkwardKeys;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(keysOf(list({}, {}, -1)), sorted);
    for (const auto& key : kAwkwardKeys) {
        m_client->deleteObject(key);
        EXPECT_FALSE(m_client->getObjectInfo(key)) << key;
    }
    EXPECT_TRUE(list({}, {}, -1).empty());
}

TEST_P(ClientConformance, WhatIsNotThereIsNotFound) {
    put("a/b", "x");
    for (const std::string key : {"a", "a/", "a/b/", "a/b/c", "A/B", "a/B"}) {
        SCOPED_TRACE(key);
        EXPECT_FALSE(m_client->getObjectInfo(key));
        EXPECT_THROW(get(key), ResourceNotFoundException);
        EXPECT_THROW(get(key, 1, 2), ResourceNotFoundException);
        EXPECT_TRUE(m_client->getObjectParts(key).empty());
        if (GetParam().missesDeleted) {
            EXPECT_THROW(m_client->deleteObject(key), ResourceNotFoundException);
        } else {
            EXPECT_NO_THROW(m_client->deleteObject(key));
        }
    }
    EXPECT_EQ(get("a/b"), "x");
    EXPECT_NO_THROW(m_client->checkObjectName("b.txt"));
}

TEST_P(ClientConformance, RangesIncludeTheirLastByteAndZeroToZeroIsTheWhole) {
    const auto parted = storeParts("parts");
    const auto whole = pattern(parted.size() + 300, 1);
    put("whole", whole);
    const auto partSize = GetParam().minPartSize;
    for (const auto& [key, bytes] : {std::pair{"whole", whole}, std::pair{"parts", parted}}) {
        const std::uint64_t end = bytes.size() - 1;
        const std::pair<std::uint64_t, std::uint64_t> ranges[] = {
            {0, 1}, {1, 1}, {end, end}, {end - 5, end}, {0, end}, {partSize - 1, partSize}, {partSize, partSize + 1}};
        for (const auto& [first, last] : ranges) {
            EXPECT_EQ(get(key, first, last), bytes.substr(first, last - first + 1))
                << key << ' ' << first << '-' << last;
        }
        EXPECT_EQ(get(key, 0, 0), bytes) << key;
        for (const auto& [first, last] : {std::pair{end, end + 1}, {end + 1, end + 1}, {end + 10, end + 20}}) {
            EXPECT_ANY_THROW(get(key, first, last)) << key << ' ' << first << '-' << last << " of " << bytes.size();
        }
    }
}

TEST_P(ClientConformance, BytesThatDoNotArriveAreAFailure) {
    // Takes some bytes, and then no more.
    struct FullSink : std::streambuf {
        std::streamsize room = 100;
        std::streamsize xsputn(const char* /*bytes*/, std::streamsize count) override {
            return std::exchange(room, room - std::min(room, count)) < count ? 0 : count;
        }
        int overflow(int byte) override { return room-- > 0 ? byte : traits_type::eof(); }
    };
    const auto bytes = pattern(70'000, 1);
    put("k", bytes);
    for (const std::uint64_t last : {std::uint64_t{0}, std::uint64_t{60'000}}) {
        FullSink full;
        std::ostream sink(&full);
        EXPECT_ANY_THROW(m_client->getObject("k", sink, 0, last));
    }
    EXPECT_EQ(get("k"), bytes);

    std::istringstream tooShort("some bytes");
    EXPECT_ANY_THROW(m_client->putObject("k", tooShort, 11));
    const auto id = m_client->startMultipartUpload("k", {});
    tooShort.clear();
    tooShort.seekg(0);
    EXPECT_ANY_THROW(m_client->uploadPart("k", id, {0, 0, 11, {}}, tooShort));
    m_client->abortMultipartUpload("k", id);
    EXPECT_EQ(get("k"), bytes);
}

TEST_P(ClientConformance, ALayoutCoversItsObjectOrTellsOnePart) {
    const std::pair<const char*, std::function<std::size_t()>> replacements[] = {
        {"an upload of three parts", [&] { return storeParts("k"), 3; }},
        {"some bytes", [&] { return put("k", "some bytes"), 1; }},
        {"no bytes", [&] { return put("k", ""), 1; }},
        {"as much as some stores show in parts", [&] { return put("k", pattern(9'000'000, 2)), 0; }},
        {"a shorter object", [&] { return put("k", pattern(8'500'000, 3)), 0; }},
        {"an upload again", [&] { return storeParts("k"), 3; }},
    };
    for (const auto& [name, replace] : replacements) {
        SCOPED_TRACE(name);
        const auto parts = replace();
        const auto layout = m_client->getObjectParts("k");
        if (!layout.empty()) {
            expectCovered(layout, m_client->getObjectInfo("k")->Size);
        }
        if (GetParam().describesUploadedParts && parts > 1) {
            EXPECT_EQ(layout.size(), parts);
        }
    }
}

TEST_P(ClientConformance, ListsInTheOrderOfBytesInPagesOfAnySize) {
    std::vector<std::string> keys{"a",     "a-b",   "a.b", "a/",    "a/b",     "a/c/",        "a/c/d",
                                  "a/c/e", "a/c0f", "a0",  "ab/cd", "b/x/y/z", "b\xC3\xBF/x", "\xF4\x8F\xBF\xBF"};
    if (GetParam().takesAnyBytesInKeys) {
        keys.insert(keys.end(), {"\xFE", "\xFF", "\xFF/x", "\xFF\xFF", "\xFF\xFF/y"});
    }
    for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
        put(*key, std::string(key->back() == '/' ? 0 : key->size(), 'x'));
    }
    for (const std::string prefix :
         {"", "a", "a/", "a/c", "a/c/", "a/c/d", "b", "b/", "nothing", "a1", "\xFF", "\xFF\xFF/"}) {
        for (const std::string delimiter : {"", "/"}) {
            std::vector<std::string> expected;
            for (const auto& key : keys) {
                if (key.compare(0, prefix.size(), prefix) == 0) {
                    const auto mark = delimiter.empty() ? delimiter.npos : key.find(delimiter, prefix.size());
                    expected.push_back(key.substr(0, mark == delimiter.npos ? mark : mark + 1));
                }
            }
            expected.erase(std::unique(expected.begin(), expected.end()), expected.end());
            for (const int maxKeys : {-1, 1, 2, 3}) {
                SCOPED_TRACE("prefix '" + prefix + "', delimiter '" + delimiter + "', pages of " +
                             std::to_string(maxKeys));
                const auto entries = list(prefix, delimiter, maxKeys);
                EXPECT_EQ(keysOf(entries), expected);
                for (const auto& entry : entries) {
                    EXPECT_EQ(entry.Size, entry.Key.back() == '/' ? 0 : entry.Key.size()) << entry.Key;
                }
            }
        }
    }
}

TEST_P(ClientConformance, AnUploadReplacesTheObjectAtCompletionOnly) {
    const std::string key = "dir/object";
    const auto partSize = GetParam().minPartSize;
    put(key, "old");
    const auto id = m_client->startMultipartUpload(key, {});
    std::vector<PartInfo> parts{{0, 0, partSize, {}}};
    send(key, id, parts, pattern(partSize, 5));
    std::vector<PartInfo> first;
    send(key, id, first, pattern(partSize, 6));
    first.clear();
    send(key, id, first, pattern(partSize, 7));
    parts.front() = first.front();
    EXPECT_EQ(get(key), "old");
    EXPECT_EQ(keysOf(list({}, {}, -1)), std::vector{key});

    m_client->completeMultipartUpload(key, id, parts);
    EXPECT_EQ(get(key), pattern(partSize, 7) + pattern(partSize, 5));
    EXPECT_EQ(m_client->getObjectInfo(key)->Size, 2 * partSize);
    if (!GetParam().repeatsCompletions) {
        EXPECT_ANY_THROW(m_client->completeMultipartUpload(key, id, parts)) << "the upload is used up";
    }

    for (const auto& part : m_client->getObjectParts(key)) {
        EXPECT_FALSE(part.Tag.empty());
    }
    put(key, "whole again");
    EXPECT_EQ(get(key), "whole again");
}

TEST_P(ClientConformance, CopiedPartsHoldTheStoredBytes) {
    const auto partSize = GetParam().minPartSize;
    const auto extra = std::uint64_t{GetParam().copiesAnyRange ? 3U : 0U};  // shifts all borders but the first
    auto expected = storeParts("k");
    for (unsigned int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        const auto id = m_client->startMultipartUpload("k", "tag");
        std::vector<PartInfo> parts;
        send("k", id, parts, pattern(partSize + extra, 8 + round));
        copy("k", id, parts, partSize);
        copy("k", id, parts, expected.size() - endOf(parts));
        EXPECT_EQ(get("k"), expected);
        m_client->completeMultipartUpload("k", id, parts);
        expected.replace(0, partSize + extra, pattern(partSize + extra, 8 + round));
        EXPECT_EQ(get("k"), expected);
    }
    m_client->deleteObject("k");
    EXPECT_FALSE(m_client->getObjectInfo("k"));
}

TEST_P(ClientConformance, ListedPartsAreCopiedUntilTheObjectIsReplaced) {
    const auto expected = storeParts("k");
    const auto layout = m_client->getObjectParts("k");
    const auto id = m_client->startMultipartUpload("k", layout.empty() ? std::string() : layout[0].Tag);
    auto copied = layout;
    if (copied.empty()) {
        copied.push_back({0, 0, expected.size(), {}});
    }
    for (auto& part : copied) {
        part.Tag = m_client->copyPart("k", id, part);
    }
    m_client->completeMultipartUpload("k", id, copied);
    EXPECT_EQ(get("k"), expected);
    if (GetParam().refusesReplacedParts) {
        const auto other = m_client->startMultipartUpload("k", {});
        put("k", pattern(expected.size(), 9));
        for (const auto& part : layout) {
            EXPECT_THROW(m_client->copyPart("k", other, part), CloudException) << part.Index;
        }
        m_client->abortMultipartUpload("k", other);
    }
}

TEST_P(ClientConformance, GivingUpOrRefusingAnUploadLeavesTheOldObject) {
    put("k", "old");
    const auto kept = m_client->startMultipartUpload("k", {});
    const auto given = m_client->startMultipartUpload("k", {});
    EXPECT_NE(kept, given);
    std::vector<PartInfo> parts;
    send("k", kept, parts, "new");
    std::vector<PartInfo> others;
    send("k", given, others, "lost");
    m_client->abortMultipartUpload("k", given);
    EXPECT_ANY_THROW(m_client->completeMultipartUpload("k", given, others));
    EXPECT_ANY_THROW(send("k", given, others, "x"));

    auto wrong = parts;
    wrong.front().Tag += "x";
    EXPECT_ANY_THROW(m_client->completeMultipartUpload("k", kept, wrong));
    EXPECT_EQ(get("k"), "old");
    m_client->completeMultipartUpload("k", kept, parts);
    EXPECT_EQ(get("k"), "new");
}

TEST_P(ClientConformance, ReadersInOtherThreadsSeeTheOldOrTheNewObject) {
    const std::string contents[] = {pattern(50'000, 1), pattern(30'000, 2)};
    put("shared", contents[0]);
    std::thread writer([&] {
        for (int round = 0; round < 20; ++round) {
            put("own/" + std::to_string(round), "x");
            put("shared", contents[round % 2]);
        }
    });
    for (int round = 0; round < 20; ++round) {
        const auto seen = get("shared");
        EXPECT_TRUE(seen == contents[0] || seen == contents[1]) << seen.size();
        EXPECT_LE(list("own/", "/", 7).size(), 20U);
    }
    writer.join();
    EXPECT_EQ(list("own/", "/", 7).size(), 20U);
}

TEST_P(ClientConformance, EveryReplacementHasAVersionOfItsOwnThatCoversTheObject) {
    const auto client = versioned();
    if (!client) {
        GTEST_SKIP();
    }
    EXPECT_FALSE(client->describeObject("k"));
    std::string nothing;
    EXPECT_FALSE(client->describeWithStart("k", 10, nothing));
    EXPECT_TRUE(nothing.empty());
    std::set<std::string> versions;
    const auto complete = [&] {
        const auto id = client->startMultipartUpload("k", {});
        std::vector<PartInfo> parts;
        send("k", id, parts, pattern(GetParam().minPartSize, 1));
        send("k", id, parts, "end");
        const auto version = client->completeUploadOver("k", id, parts, ExpectedObject::anything());
        EXPECT_EQ(version, client->describeObject("k")->Version);
    };
    const std::function<void()> replacements[] = {
        [&] { put("k", "same"); },
        [&] { put("k", "same"); },
        [&] { client->deleteObject("k"), put("k", "same"); },
        [&] { put("k", ""); },
        [&] { storeParts("k"); },
        [&] { storeParts("k"); },
        complete,
        [&] { put("k", pattern(9'000'000, 2)); },
        [&] { put("k", pattern(9'000'000, 3)); },
    };
    for (const auto& replace : replacements) {
        replace();
        const auto described = client->describeObject("k");
        ASSERT_TRUE(described);
        EXPECT_FALSE(described->Version.empty());
        EXPECT_TRUE(versions.insert(described->Version).second || GetParam().namesContents) << described->Version;
        EXPECT_EQ(client->describeObject("k")->Version, described->Version);
        for (const std::uint64_t most : {std::uint64_t{1}, std::uint64_t{4}, std::uint64_t{65536}}) {
            std::string start;
            EXPECT_EQ(client->describeWithStart("k", most, start)->Version, described->Version);
            const auto bytes = get("k");
            EXPECT_TRUE(start.empty() || start == bytes.substr(0, most)) << start.size() << " of " << bytes.size();
        }
        ASSERT_FALSE(described->Parts.empty());
        expectCovered(described->Parts, client->getObjectInfo("k")->Size);
        const auto layout = client->getObjectParts("k");
        EXPECT_EQ(described->Parts.size(), std::max(layout.size(), std::size_t{1}));
        for (std::size_t at = 0; at < layout.size(); ++at) {
            EXPECT_EQ(described->Parts.at(at).Tag, layout[at].Tag);
        }
    }
}

TEST_P(ClientConformance, RangesComeFromTheirVersionOrNotAtAll) {
    const auto client = versioned();
    if (!client) {
        GTEST_SKIP();
    }
    const auto bytes = storeParts("k");
    const auto size = bytes.size();
    const auto version = client->describeObject("k")->Version;
    const auto getRange = [&](const std::string& ofVersion, std::uint64_t first, std::uint64_t count) {
        std::ostringstream sink;
        client->getRange("k", ofVersion, {first, count, count == size}, sink);
        return sink.str();
    };
    for (const auto& ofVersion : {version, std::string()}) {
        for (const auto& [first, count] : {std::pair<std::uint64_t, std::uint64_t>{0, 1}, {0, size}, {1, size - 1}}) {
            EXPECT_EQ(getRange(ofVersion, first, count), bytes.substr(first, count)) << first << '+' << count;
        }
    }
    const auto id = client->startMultipartUpload("k", {});
    std::vector<PartInfo> parts{{0, 0, GetParam().minPartSize, {}}};
    const auto records = client->copyRun("k", id, parts, version);
    const std::function<void()> changes[] = {[&] { put("k", bytes); }, [&] { client->deleteObject("k"); }};
    for (const auto& change : changes) {
        change();
        EXPECT_THROW(getRange(version, 0, 1), ResourceInUseException);
        EXPECT_THROW(getRange(version, 0, size), ResourceInUseException);
        if (!GetParam().refusesCopiesLate) {
            EXPECT_THROW(client->copyRange("k", id, parts[0], version), ResourceInUseException);
            EXPECT_THROW(client->copyRun("k", id, parts, version), ResourceInUseException);
        }
    }
    EXPECT_THROW(getRange({}, 0, 1), ResourceNotFoundException);
    EXPECT_THROW(client->completeUploadOver("k", id, records, ExpectedObject::version(version)),
                 ResourceInUseException);
    client->completeMultipartUpload("k", id, records);
    EXPECT_EQ(get("k"), bytes.substr(0, parts[0].Size))
        << "what was copied before stays, what was refused adds nothing";
}

TEST_P(ClientConformance, CopiedRunsAreCoveredByTheirRecords) {
    const auto client = versioned();
    if (!client) {
        GTEST_SKIP();
    }
    auto expected = storeParts("k");
    for (unsigned int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        const auto described = client->describeObject("k");
        ASSERT_TRUE(described);
        const auto id = client->startMultipartUpload("k", described->Parts.at(0).Tag);
        std::vector<PartInfo> parts;
        send("k", id, parts, pattern(described->Parts[0].Size, 8 + round));
        const std::vector<PartInfo> run(described->Parts.begin() + 1, described->Parts.end());
        client->copyRun("k", id, run, described->Version);  // a run may be taken again
        for (const auto& record : client->copyRun("k", id, run, described->Version)) {
            EXPECT_EQ(record.Offset, endOf(parts));
            parts.push_back(record);
        }
        EXPECT_EQ(endOf(parts), expected.size());
        client->completeUploadOver("k", id, parts, ExpectedObject::version(described->Version));
        const auto sent = pattern(parts[0].Size, 8 + round);
        expected.replace(0, sent.size(), sent);
        EXPECT_EQ(get("k"), expected);
        EXPECT_EQ(client->describeObject("k")->Parts.size(), described->Parts.size());
    }
}

TEST_P(ClientConformance, CopiesInsideTheStoreAreWholeAndGoTheirOwnWay) {
    const auto client = versioned();
    if (!client) {
        GTEST_SKIP();
    }
    put("empty", "");
    put("small", "bytes");
    storeParts("large");
    for (const std::string from : {"empty", "small", "large"}) {
        SCOPED_TRACE(from);
        const auto bytes = get(from);
        const auto source = client->describeObject(from);
        ASSERT_TRUE(source);
        ASSERT_EQ(client->copyObject(from, source->Version, "to", ExpectedObject::anything()),
                  GetParam().copiesInStore);
        if (!GetParam().copiesInStore) {
            EXPECT_FALSE(client->describeObject("to"));
            continue;
        }
        EXPECT_EQ(get("to"), bytes);
        const auto copy = client->describeObject("to");
        ASSERT_TRUE(copy);
        EXPECT_TRUE(copy->Version != source->Version || GetParam().namesContents);
        EXPECT_EQ(endOf(copy->Parts), bytes.size());
        EXPECT_EQ(client->describeObject(from)->Version, source->Version);
        if (!bytes.empty()) {
            const auto id = client->startMultipartUpload("to", {});
            client->completeMultipartUpload("to", id, client->copyRun("to", id, copy->Parts, copy->Version));
            EXPECT_EQ(get("to"), bytes) << "the copy's parts can be copied";
        }
        client->deleteObject("to");
        EXPECT_EQ(get(from), bytes) << "what the copy was made of stays";
        EXPECT_TRUE(client->copyObject(from, {}, "to", ExpectedObject::absent())) << "no version: whatever is stored";
        put(from, "other");
        EXPECT_EQ(get("to"), bytes) << "the copy stays";
    }
}

TEST_P(ClientConformance, CopiesAndRemovalsAreOfTheirVersionOrNotAtAll) {
    const auto client = versioned();
    if (!client) {
        GTEST_SKIP();
    }
    const std::function<void()> changes[] = {[&] { put("k", "theirs"); }, [&] { client->deleteObject("k"); }};
    for (const auto& change : changes) {
        put("k", "old");
        const auto version = client->describeObject("k")->Version;
        change();
        const auto stored = client->describeObject("k");
        if (GetParam().copiesInStore) {
            EXPECT_THROW(client->copyObject("k", version, "to", ExpectedObject::anything()), ResourceInUseException);
            EXPECT_FALSE(client->describeObject("to"));
        }
        EXPECT_THROW(client->removeObject("k", version), ResourceInUseException);
        EXPECT_TRUE(!stored || get("k") == "theirs");
    }
    if (GetParam().copiesInStore) {
        EXPECT_THROW(client->copyObject("k", {}, "to", ExpectedObject::anything()), ResourceNotFoundException);
    }
    put("k", "new");
    client->removeObject("k", client->describeObject("k")->Version);
    EXPECT_FALSE(client->describeObject("k"));
    put("k", "new");
    client->removeObject("k", {});
    EXPECT_FALSE(client->describeObject("k"));
    EXPECT_GE(client->limits().UsefulUploads, 1U);
    EXPECT_GE(client->limits().UsefulDownloads, 1U);
}

TEST_P(ClientConformance, WritesReplaceOnlyWhatIsExpected) {
    const auto client = versioned();
    if (!client) {
        GTEST_SKIP();
    }
    const auto currentVersion = [&]() -> std::optional<std::string> {
        const auto described = client->describeObject("k");
        return described ? std::optional(described->Version) : std::nullopt;
    };
    struct Row {
        const char* name;
        std::function<ExpectedObject(const std::string& former, const std::string& last)> expected;
        bool isMetByObject;
        bool isMetByNone;
    };
    const Row rows[] = {
        {"anything", [](const auto&, const auto&) { return ExpectedObject::anything(); }, true, true},
        {"absent", [](const auto&, const auto&) { return ExpectedObject::absent(); }, false, true},
        {"former", [](const auto& former, const auto&) { return ExpectedObject::version(former); }, false, false},
        {"last", [](const auto&, const auto& last) { return ExpectedObject::version(last); }, true, false},
    };
    put("source", "new");
    for (const auto& row : rows) {
        enum class Write { Put, Upload, Copy };
        for (const unsigned mode : {0U, 1U, 2U, 3U, 4U, 5U}) {
            const auto kind = static_cast<Write>(mode / 2);
            const bool isUpload = kind == Write::Upload;
            const bool isStored = mode % 2 != 0;
            if (kind == Write::Copy && !GetParam().copiesInStore) {
                continue;
            }
            SCOPED_TRACE(std::string(row.name) + ", write " + std::to_string(mode / 2) + (isStored ? "" : ", removed"));
            put("k", GetParam().namesContents ? "older" : "old");
            const auto former = *currentVersion();
            put("k", "old");
            const auto expected = row.expected(former, *currentVersion());
            if (!isStored) {
                client->deleteObject("k");
            }
            const auto before = currentVersion();
            std::istringstream data("new");
            const auto id = client->startMultipartUpload("k", {});
            std::vector<PartInfo> parts;
            send("k", id, parts, "new");
            const auto write = [&]() -> std::optional<std::string> {
                if (kind == Write::Copy) {
                    EXPECT_TRUE(client->copyObject("source", client->describeObject("source")->Version, "k", expected));
                    return currentVersion();
                }
                return isUpload ? client->completeUploadOver("k", id, parts, expected)
                                : client->putObjectOver("k", data, 3, expected);
            };
            const bool isMet = isStored ? row.isMetByObject : row.isMetByNone;
            if (isMet) {
                const auto version = write();
                EXPECT_EQ(version, currentVersion());
                EXPECT_NE(version, before);
                EXPECT_EQ(get("k"), "new");
                EXPECT_TRUE(!isUpload || !GetParam().describesUploadedParts ||
                            client->describeObject("k")->Parts.at(0).Tag == parts[0].Tag);
            } else {
                EXPECT_THROW(write(), ResourceInUseException);
                EXPECT_EQ(currentVersion(), before);
                EXPECT_TRUE(!isStored || get("k") == "old");
            }
            if (!isUpload || !isMet) {
                EXPECT_NO_THROW(client->abortMultipartUpload("k", id));
            }
        }
    }
}

}  // namespace storage::cloudprovider::test
