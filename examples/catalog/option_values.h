#pragma once

#include <string>
#include <vector>

using Words = std::vector<std::string>;

/// The words, with a comma and a blank between two.
std::string joined(Words const& words);

/// `require_word` and `read_number` throw CLI::ValidationError, which names the option, for a text that they refuse.

/// `word` must be one of `allowed`.
void require_word(std::string const& option, std::string const& word, Words const& allowed);

/// Why `name` is no name of a machine; empty when it is one. Letters must be ASCII: databases do not agree on the lower
/// case of others.
std::string host_name_error(std::string const& name);

/// A number from 0 to 2^63-1. One letter of `units` may follow: the first one means times 1024, each further one 1024
/// times as much.
long long read_number(std::string const& option, std::string const& text, std::string const& units = "");
