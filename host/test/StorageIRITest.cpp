// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/Text.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>

#include <gtest/gtest.h>

#include <stdexcept>

namespace foundation::storage::provider {

namespace {

TEST(StorageIRITest, SplitsTextIntoAuthorityAndPath) {
    const struct {
        const char16_t* text;
        const char16_t* path;
        const char16_t* name;
        const char16_t* parent;  // its path; none: nullptr
    } rows[] = {
        {u"", u"", u"", nullptr},
        {u"/", u"/", u"", nullptr},
        {u"//", u"//", u"", nullptr},
        {u"/a", u"/a", u"a", u"/"},
        {u"/a/b.txt", u"/a/b.txt", u"b.txt", u"/a"},
        {u"/a//b//", u"/a//b//", u"b", u"/a"},
        {u"//a", u"//a", u"a", u"/"},
        {u"a", u"a", u"a", u"/"},
        {u"s://h", u"", u"", nullptr},
        {u"s://h/", u"/", u"", nullptr},
        {u"s://h/a/b", u"/a/b", u"b", u"/a"},
        {u"/x://h/a", u"/x://h/a", u"a", u"/x://h"},
        {u"://h/a", u"://h/a", u"a", u"://h"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(toUtf8(row.text));
        const StorageIRI iri(row.text);
        EXPECT_EQ(iri.getPath(), row.path);
        EXPECT_EQ(iri.hasPath(), *row.path != u'\0');
        EXPECT_EQ(iri.getName(), row.name);
        EXPECT_EQ(iri.toDisplayText(), toUtf8(row.text));
        ASSERT_EQ(iri.hasParent(), row.parent != nullptr);
        if (row.parent != nullptr) {
            EXPECT_EQ(iri.getParent(), iri.withPath(row.parent));
        } else {
            EXPECT_THROW(iri.getParent(), std::logic_error);
        }
    }
}

TEST(StorageIRITest, OrdersByAuthorityThenByPath) {
    const StorageIRI sorted[] = {StorageIRI(), StorageIRI(u"/a"), StorageIRI(u"/a/b"), StorageIRI(u"s://a/z"),
                                 StorageIRI(u"s://b/a")};
    for (const auto& left : sorted) {
        for (const auto& right : sorted) {
            EXPECT_EQ(left < right, &left < &right) << left << ' ' << right;
            EXPECT_EQ(left == right, &left == &right) << left << ' ' << right;
        }
    }
}

TEST(TextTest, ConvertsValidTextBothWaysAndRefusesTheRest) {
    for (const auto& text : {std::string(), std::string("a\0b", 3), std::string("\xC3\xBC\xE2\x82\xAC"),
                             std::string("\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF")}) {
        EXPECT_EQ(toUtf8(toUtf16(text)), text);
        EXPECT_EQ(toUtf16Lossy(text), toUtf16(text));
    }
    EXPECT_EQ(toUtf16("\xF0\x9F\x98\x80"), u"\xD83D\xDE00");
    const std::pair<std::string, std::u16string> malformed[] = {{"\xFF", u"\xFFFD"},
                                                                {"\xC3", u"\xFFFD"},
                                                                {"\x80z", u"\xFFFDz"},
                                                                {"\xC3z", u"\xFFFDz"},
                                                                {"\xC3\xC3\xBC", u"\xFFFD\u00FC"},
                                                                {"\xE2\x82z", u"\xFFFD\xFFFDz"},
                                                                {"\xC0\xAF", u"\xFFFD\xFFFD"},
                                                                {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD"}};
    for (const auto& [bytes, shown] : malformed) {
        SCOPED_TRACE(toUtf8(shown));
        EXPECT_THROW(toUtf16(bytes), InvalidTextError);
        EXPECT_EQ(toUtf16Lossy(bytes), shown);
    }
    for (const std::u16string text : {u"\xD800", u"\xDC00z", u"\xD800z", u"\xD800\xD83D\xDE00"}) {
        EXPECT_THROW(toUtf8(text), InvalidTextError);
        EXPECT_EQ(toUtf8Lossy(text), "\xEF\xBF\xBD" + toUtf8(text.substr(1)));
    }
    EXPECT_EQ(StorageIRI(u"/\xD800").toDisplayText(), "/\xEF\xBF\xBD");
}

}  // namespace

}  // namespace foundation::storage::provider
