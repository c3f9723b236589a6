// SPDX-License-Identifier: Apache-2.0
#include "terminal/escapeText.hpp"

#include <foundation/services/Text.hpp>

#include <algorithm>
#include <array>

namespace cloudfs {

namespace {

struct NamedEscape {
    char character;
    char letter;
};

constexpr std::array kNamedEscapes{NamedEscape{'\a', 'a'}, NamedEscape{'\b', 'b'}, NamedEscape{'\t', 't'},
                                   NamedEscape{'\n', 'n'}, NamedEscape{'\v', 'v'}, NamedEscape{'\f', 'f'},
                                   NamedEscape{'\r', 'r'}, NamedEscape{'\\', '\\'}};

void appendOctal(std::string& result, unsigned char byte) {
    result.push_back('\\');
    for (const unsigned int shift : {6U, 3U, 0U}) {
        result.push_back(static_cast<char>('0' + ((byte >> shift) & 7U)));
    }
}

void appendEscaped(std::string& result, std::string_view bytes) {
    for (const char byte : bytes) {
        appendOctal(result, static_cast<unsigned char>(byte));
    }
}

// Bytes of the UTF-8 character that begins with this one; 1 for anything that begins none.
std::size_t announcedLength(unsigned char first) {
    if (first >= 0xF0) {
        return 4;
    }
    if (first >= 0xE0) {
        return 3;
    }
    return first >= 0xC0 ? 2 : 1;
}

// Terminals take U+0080 to U+009F for the start of a command. The others turn the direction of writing: what follows
// would be shown as something else (Unicode Standard Annex 9, table 4).
bool isHarmful(char32_t character) {
    struct Range {
        char32_t first;
        char32_t last;
    };
    constexpr std::array kHarmful{Range{0x80, 0x9F}, Range{0x61C, 0x61C}, Range{0x200E, 0x200F}, Range{0x202A, 0x202E},
                                  Range{0x2066, 0x2069}};
    return std::any_of(kHarmful.begin(), kHarmful.end(),
                       [&](const Range& range) { return character >= range.first && character <= range.last; });
}

// Of valid UTF-8 beyond ASCII.
char32_t decode(std::string_view character) {
    constexpr unsigned int kBitsOfOthers = 6;
    constexpr unsigned int kMaskOfOthers = 0x3F;
    char32_t result = static_cast<unsigned char>(character.front()) & (0x7FU >> character.size());
    for (const char byte : character.substr(1)) {
        result = (result << kBitsOfOthers) | (static_cast<unsigned char>(byte) & kMaskOfOthers);
    }
    return result;
}

bool isControl(char character) {
    constexpr char kDelete = 0x7F;
    return static_cast<unsigned char>(character) < ' ' || character == kDelete;
}

// Takes a text apart: onAscii is given each ASCII character, onOther the bytes of each other one and its number, onByte
// each byte that is no UTF-8.
template <typename OnAscii, typename OnOther, typename OnByte>
void forEachCharacter(std::string_view text, const OnAscii& onAscii, const OnOther& onOther, const OnByte& onByte) {
    while (!text.empty()) {
        const auto first = static_cast<unsigned char>(text.front());
        auto character = text.substr(0, announcedLength(first));
        if (first < 0x80) {
            onAscii(text.front());
        } else if (isUtf8(character)) {
            onOther(character, decode(character));
        } else {
            character = text.substr(0, 1);
            onByte(character);
        }
        text.remove_prefix(character.size());
    }
}

void appendAscii(std::string& result, char character) {
    for (const auto& escape : kNamedEscapes) {
        if (character == escape.character) {
            result.append({'\\', escape.letter});
            return;
        }
    }
    if (isControl(character)) {
        appendOctal(result, static_cast<unsigned char>(character));
    } else {
        result.push_back(character);
    }
}

// RFC 8259, section 7. All that is escaped here has a number of four digits.
void appendJsonEscape(std::string& result, char32_t character) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    result.append("\\u");
    for (const unsigned int shift : {12U, 8U, 4U, 0U}) {
        result.push_back(kDigits[(character >> shift) & 0xFU]);
    }
}

void appendJsonAscii(std::string& result, char character) {
    if (isControl(character)) {
        appendJsonEscape(result, static_cast<unsigned char>(character));
        return;
    }
    if (character == '"' || character == '\\') {
        result.push_back('\\');
    }
    result.push_back(character);
}

}  // namespace

bool isUtf8(std::string_view text) {
    try {
        foundation::toUtf16(text);
        return true;
    } catch (const foundation::InvalidTextError&) {
        return false;
    }
}

std::string escapeText(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    forEachCharacter(
        text, [&](char character) { appendAscii(result, character); },
        [&](std::string_view bytes, char32_t character) {
            isHarmful(character) ? appendEscaped(result, bytes) : void(result.append(bytes));
        },
        [&](std::string_view byte) { appendEscaped(result, byte); });
    return result;
}

std::string toJsonString(std::string_view text) {
    std::string result = "\"";
    forEachCharacter(
        text, [&](char character) { appendJsonAscii(result, character); },
        [&](std::string_view bytes, char32_t character) {
            isHarmful(character) ? appendJsonEscape(result, character) : void(result.append(bytes));
        },
        [&](std::string_view /*byte*/) { result.append("\uFFFD"); });
    return result + '"';
}

}  // namespace cloudfs
