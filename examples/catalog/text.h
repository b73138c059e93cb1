#pragma once

#include <cstddef>
#include <string>

/// `text` for a terminal: a backslash doubled; line break, tab and carriage return as \n, \t and \r; other control
/// characters, characters that reorder a line, and bytes that are no UTF-8 as \xNN. The result is valid UTF-8.
std::string printable(std::string const& text);

/// JSON text of the same value: characters above U+007E that harm a terminal become \uXXXX.
std::string printable_json(std::string const& json);

/// `text` with U+FFFD in place of each byte that is no UTF-8.
std::string valid_utf8(std::string const& text);

/// The number of code points in a valid UTF-8 text: its width in columns, except for wide and combining characters.
std::size_t display_width(std::string const& text);

/// Digits in groups of three: 1,234,567.
std::string grouped(unsigned long long number);
std::string grouped(std::string digits);

/// The text 8-4-4-4-12 of a uuid's bytes, lower case.
std::string uuid_text(std::string const& bytes);
