// SPDX-License-Identifier: Apache-2.0
#include "provider/getResolvedIRI.hpp"

#include <foundation/services/Text.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <gtest/gtest.h>
#include <boost/date_time/posix_time/posix_time.hpp>

#include <cmath>
#include <limits>
#include <string>

namespace storage::cloudprovider {

namespace {

using foundation::storage::provider::StorageIRI;

TEST(KeyTest, CanonicalizingIsTextual) {
    const std::pair<const char16_t*, const char16_t*> rows[] = {
        {u"", u""},          {u".", u""},        {u"./", u"/"},        {u"a//./b", u"a/b"},
        {u"x../y", u"x./y"}, {u"a/.", u"a/"},    {u"a..", u"a."},      {u"a...", u"a.."},
        {u"/./a", u"/a"},    {u"/.", u"/"},      {u"///", u"/"},       {u"a/./././b", u"a/b"},
        {u"..", u"."},       {u"../..", u"./."}, {u".a/.b", u".a/.b"}, {u"a.b/c.d", u"a.b/c.d"}};
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(utils::canonicalize(text), expected) << foundation::toUtf8(text);
    }
}

TEST(KeyTest, KeysLeaveSchemeAuthorityAndTheLeadingSlashOut) {
    const std::pair<const char16_t*, const char*> rows[] = {{u"", ""},
                                                            {u"/", ""},
                                                            {u"/.", ""},
                                                            {u"/./a", "a"},
                                                            {u"s://h", ""},
                                                            {u"s://h/a/b", "a/b"},
                                                            {u"a", "a"},
                                                            {u"//a//", "a/"},
                                                            {u"/a/b/", "a/b/"},
                                                            {u"/\u00FC x", "\xC3\xBC x"},
                                                            {u"/\xD83D\xDE00", "\xF0\x9F\x98\x80"}};
    for (const auto& [text, key] : rows) {
        EXPECT_EQ(utils::iriToKey(StorageIRI(text)), key) << foundation::toUtf8(text);
    }
    EXPECT_THROW(utils::iriToKey(StorageIRI(u"/a\xD800")), InvalidLocationException);
    EXPECT_THROW(getResolvedIRI(StorageIRI(u"/\xDC00/a")), InvalidLocationException);
}

// Calls check with every text over the letters a, "." and "/" of up to that length.
template <typename Check>
void forAllTexts(std::size_t maxLength, std::u16string& text, Check check) {
    check(text);
    if (text.size() < maxLength) {
        for (const char16_t letter : {u'a', u'.', u'/'}) {
            text.push_back(letter);
            forAllTexts(maxLength, text, check);
            text.pop_back();
        }
    }
}

TEST(KeyTest, ResolvingKeepsTheKeyAndIsDoneOnce) {
    for (const std::u16string scheme : {u"", u"s://h"}) {
        std::u16string text;
        forAllTexts(7, text, [&](const std::u16string& path) {
            if (!scheme.empty() && !path.empty() && path.front() != u'/') {
                return;  // would belong to the authority
            }
            const StorageIRI iri(scheme + path);
            const auto resolved = getResolvedIRI(iri);
            auto key = utils::iriToKey(iri);
            const bool isClean = iri.getPath() == u'/' + foundation::toUtf16(key) && (key.empty() || key.back() != '/');
            if (utils::hasTrailingSlash(key)) {
                key.pop_back();
            }
            ASSERT_EQ(utils::iriToKey(resolved), key) << iri;
            ASSERT_EQ(getResolvedIRI(resolved), resolved) << iri;
            ASSERT_EQ(resolved.withPath(iri.getPath()), iri) << "scheme or authority lost";
            if (isClean) {
                ASSERT_EQ(resolved, iri);
            }
        });
    }
}

TEST(KeyTest, EveryKeyWithoutEmptyComponentsHasAPath) {
    std::u16string text;
    forAllTexts(7, text, [](const std::u16string& key) {
        const bool hasEmptyComponent = (u'/' + key + u'/').find(u"//") != std::u16string::npos;
        if (key.empty() || !hasEmptyComponent) {
            const StorageIRI iri(utils::keyToPath(foundation::toUtf8(key)));
            ASSERT_EQ(utils::iriToKey(iri), foundation::toUtf8(key));
        }
    });
    EXPECT_THROW(utils::keyToPath("a\xFF"), foundation::InvalidTextError);
}

TEST(KeyTest, SlashesAreAddedAndRemovedOneAtATime) {
    EXPECT_EQ(utils::addLeadingSlash(u""), u"/");
    EXPECT_EQ(utils::addLeadingSlash(u"a"), u"/a");
    EXPECT_EQ(utils::addLeadingSlash(u"//a"), u"//a");
    EXPECT_EQ(utils::removeLeadingSlash(u"//a"), u"/a");
    EXPECT_EQ(utils::removeLeadingSlash(u""), u"");
    EXPECT_EQ(utils::removeTrailingSlash(u"a//"), u"a/");
    EXPECT_EQ(utils::removeTrailingSlash(u""), u"");
    EXPECT_EQ(utils::ensureTrailingSlash(""), "");
    EXPECT_EQ(utils::ensureTrailingSlash("a"), "a/");
    EXPECT_EQ(utils::ensureTrailingSlash("a/"), "a/");
    EXPECT_FALSE(utils::hasTrailingSlash(""));
}

TEST(TimeTest, MillisecondsAreKeptOnlyByTheIntegerForm) {
    const auto text = [](const boost::posix_time::ptime& time) { return to_iso_extended_string(time); };
    EXPECT_EQ(text(utils::long2Ptime(1'500'000'001'234)), "2017-07-14T02:40:01.234000");
    EXPECT_EQ(text(utils::double2Ptime(1'500'000'001'999.9)), "2017-07-14T02:40:01");
    EXPECT_EQ(text(utils::long2Ptime(-1)), "1969-12-31T23:59:59.999000");
    EXPECT_EQ(text(utils::double2Ptime(-1'999)), "1969-12-31T23:59:59") << "cut toward zero";
    EXPECT_EQ(text(utils::double2Ptime(-0.5)), "1970-01-01T00:00:00");
    EXPECT_EQ(text(utils::long2Ptime(253'402'300'799'000)), "9999-12-31T23:59:59");
    EXPECT_EQ(text(utils::double2Ptime(253'402'300'799'999)), "9999-12-31T23:59:59");
    EXPECT_EQ(text(utils::long2Ptime(-17'987'443'200'000)), "1400-01-01T00:00:00");
}

TEST(TimeTest, WhatATimeCannotHoldIsNoTime) {
    using Limits = std::numeric_limits<double>;
    for (const double value : {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(), Limits::max(),
                               Limits::lowest(), 253'402'300'800'000.0, -17'987'443'201'000.0}) {
        EXPECT_TRUE(utils::double2Ptime(value).is_not_a_date_time()) << value;
    }
    for (const std::int64_t value :
         {INT64_MIN, INT64_MAX, std::int64_t{253'402'300'800'000}, std::int64_t{-17'987'443'200'001}}) {
        EXPECT_TRUE(utils::long2Ptime(value).is_not_a_date_time()) << value;
    }
}

}  // namespace

}  // namespace storage::cloudprovider
