// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace cloudfs {

class StandardOutput;

/// A JSON document on standard output: an array of objects, one a line, each written when it is known. One that was not
/// ended is no document, so that who reads it sees that something failed.
///
/// Errors   as StandardOutput::write.
class JsonList {
public:
    using Value = std::variant<std::nullptr_t, std::uint64_t, std::string>;
    using Member = std::pair<std::string_view, Value>;

    /// output has to outlive this.
    explicit JsonList(StandardOutput& output) : m_output(output) {}

    /// Write an object. Names are ASCII letters, texts anything.
    void add(std::initializer_list<Member> object);

    /// Write the end, also of an empty list.
    void end();

private:
    StandardOutput& m_output;
    bool m_isEmpty = true;
};

}  // namespace cloudfs
