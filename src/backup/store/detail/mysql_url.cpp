#include "backup/store/detail/mysql_url.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "backup/store/detail/mysql_text.h"

namespace backup {

namespace {

[[noreturn]] void refuse(std::string const& reason) { throw std::runtime_error(reason); }

template <class Number>
bool read(std::string_view digits, int base, Number& number) {
  auto const end = digits.data() + digits.size();
  auto const result = std::from_chars(digits.data(), end, number, base);
  return result.ec == std::errc() && result.ptr == end;
}

std::string decode(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    unsigned char byte = 0;
    std::string_view const digits = text.substr(i + 1, 2);
    if (digits.size() != 2 || !read(digits, 16, byte) || byte == 0)
      refuse("a percent sign without the two digits of a byte");
    out += static_cast<char>(byte);
    i += 2;
  }
  return out;
}

bool is_scheme(std::string_view text) { return is_word(text, "mysql") || is_word(text, "mariadb"); }

// Moves the text before `separator` to `before`; false, with `text` unchanged, without a separator.
bool cut(std::string_view& text, char separator, std::string_view& before) {
  std::size_t const found = text.find(separator);
  if (found == std::string_view::npos) return false;
  before = text.substr(0, found);
  text.remove_prefix(found + 1);
  return true;
}

// [host][:port], where an IPv6 address stands in brackets
void read_host(std::string_view text, MySQL_URL& url) {
  bool const has_brackets = !text.empty() && text.front() == '[';
  if (has_brackets) text.remove_prefix(1);
  std::size_t const end = std::min(text.find(has_brackets ? ']' : ':'), text.size());
  url.host = decode(text.substr(0, end));
  text.remove_prefix(end);
  if (has_brackets) {
    if (text.empty()) refuse("a bracket that is not closed");
    text.remove_prefix(1);
  }
  // The client would read other characters as a list of servers, or as its own settings.
  auto const is_odd = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) == 0 && std::strchr(".-_:", c) == nullptr;
  };
  if (std::any_of(url.host.begin(), url.host.end(), is_odd)) refuse("no name or address of a host");
  if (text.empty()) return;
  bool const is_port = text.front() == ':' && read(text.substr(1), 10, url.port);
  if (!is_port || url.port == 0 || url.port > 65535) refuse("the port is no number from 1 to 65535");
}

void read_options(std::string_view text, MySQL_URL& url) {
  std::string_view key;
  if (!cut(text, '=', key) || key != "socket" || text.empty() || text.find('&') != std::string_view::npos) {
    refuse("after '?' only socket=path is known");
  }
  url.socket = decode(text);
  if (!url.host.empty() && url.host != "localhost") refuse("a socket is on this machine, not on another host");
}

}  // namespace

bool is_mysql_url(std::string const& text) {
  std::string_view rest(text);
  std::string_view scheme;
  return cut(rest, ':', scheme) && is_scheme(scheme);
}

MySQL_URL parse_mysql_url(std::string const& url) {
  std::string_view rest(url);
  std::string_view scheme;
  bool const is_url = cut(rest, ':', scheme) && is_scheme(scheme) && rest.substr(0, 2) == "//";
  if (!is_url) refuse("it does not begin with mysql:// or mariadb://");
  rest.remove_prefix(2);
  MySQL_URL parts{};
  std::string_view authority;
  std::string_view user;
  if (!cut(rest, '/', authority)) refuse("no '/' before the database");
  if (cut(authority, '@', user)) {
    parts.user = decode(user);
    if (parts.user.find(':') != std::string::npos) refuse("a password does not belong into it");
  }
  read_host(authority, parts);
  std::string_view database = rest;
  bool const has_options = cut(rest, '?', database);
  // The database's name looks like this when a password in the URL has a slash.
  if (database.find_first_of("/@") != std::string_view::npos) refuse("'/' or '@' in the database's name");
  parts.database = decode(database);
  if (has_options) read_options(rest, parts);
  if (parts.host.empty() && parts.socket.empty()) refuse("neither a host nor a socket");
  return parts;
}

}  // namespace backup
