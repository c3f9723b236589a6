// SPDX-License-Identifier: Apache-2.0
#include "terminal/JsonList.hpp"

#include "terminal/StandardOutput.hpp"
#include "terminal/escapeText.hpp"

namespace cloudfs {

namespace {

std::string toJson(std::nullptr_t) {
    return "null";
}

std::string toJson(std::uint64_t number) {
    return std::to_string(number);
}

std::string toJson(const std::string& text) {
    return toJsonString(text);
}

}  // namespace

void JsonList::add(std::initializer_list<Member> object) {
    std::string text = m_isEmpty ? "[\n{" : ",\n{";
    std::string_view separator;
    for (const auto& [name, value] : object) {
        text.append(separator).append(toJsonString(name)).append(": ");
        text.append(std::visit([](const auto& known) { return toJson(known); }, value));
        separator = ", ";
    }
    m_isEmpty = false;
    m_output.write(text + '}');
}

void JsonList::end() {
    m_output.write(m_isEmpty ? "[]\n" : "\n]\n");
}

}  // namespace cloudfs
