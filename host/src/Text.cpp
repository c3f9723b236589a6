// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/Text.hpp>

#include <boost/locale/utf.hpp>

#include <iterator>

namespace foundation {

namespace {

namespace utf = boost::locale::utf;

constexpr utf::code_point kReplacement = 0xFFFD;

// OnError is called for each malformed unit and answers the character to put in its place.
template <typename To, typename From, typename OnError>
std::basic_string<To> convert(std::basic_string_view<From> text, OnError onError) {
    std::basic_string<To> result;
    result.reserve(text.size());
    const From* at = text.data();
    const From* const end = at + text.size();
    while (at != end) {
        const From* const start = at;
        utf::code_point character = utf::utf_traits<From>::decode(at, end);
        if (character == utf::illegal || character == utf::incomplete) {
            character = onError();
            at = start + 1;  // decode may have swallowed a valid unit after the malformed one
        }
        utf::utf_traits<To>::encode(character, std::back_inserter(result));
    }
    return result;
}

utf::code_point replace() {
    return kReplacement;
}

}  // namespace

std::u16string toUtf16(std::string_view utf8) {
    return convert<char16_t>(utf8, []() -> utf::code_point { throw InvalidTextError("text is not valid UTF-8"); });
}

std::string toUtf8(std::u16string_view utf16) {
    return convert<char>(utf16, []() -> utf::code_point { throw InvalidTextError("text is not valid UTF-16"); });
}

std::u16string toUtf16Lossy(std::string_view utf8) {
    return convert<char16_t>(utf8, replace);
}

std::string toUtf8Lossy(std::u16string_view utf16) {
    return convert<char>(utf16, replace);
}

}  // namespace foundation
