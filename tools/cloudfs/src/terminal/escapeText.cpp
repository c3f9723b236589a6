// SPDX-License-Identifier: Apache-2.0
#include "terminal/escapeText.hpp"

#include <foundation/services/Text.hpp>

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

// U+0080 to U+009F: terminals take some of them for the start of a command.
bool isSecondControlBlock(std::string_view character) {
    return character.size() == 2 && character[0] == '\xC2' && static_cast<unsigned char>(character[1]) < 0xA0;
}

void appendAscii(std::string& result, char character) {
    for (const auto& escape : kNamedEscapes) {
        if (character == escape.character) {
            result.append({'\\', escape.letter});
            return;
        }
    }
    constexpr char kDelete = 0x7F;
    if (static_cast<unsigned char>(character) < ' ' || character == kDelete) {
        appendOctal(result, static_cast<unsigned char>(character));
    } else {
        result.push_back(character);
    }
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
    while (!text.empty()) {
        const auto first = static_cast<unsigned char>(text.front());
        auto character = text.substr(0, announcedLength(first));
        if (first < 0x80) {
            appendAscii(result, text.front());
        } else if (!isUtf8(character)) {
            character = text.substr(0, 1);
            appendEscaped(result, character);
        } else if (isSecondControlBlock(character)) {
            appendEscaped(result, character);
        } else {
            result.append(character);
        }
        text.remove_prefix(character.size());
    }
    return result;
}

}  // namespace cloudfs
