#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "backup/runtime/runtime_export.h"

/// Text with variables between two delimiters: pattern "{{a}}={{b}}" with delimiters "{{" and "}}" has two. The pattern
/// is parsed once; variables may be set and the text rendered any number of times. Booleans are written as 1 and 0,
/// reals as the shortest text that reads back the same, unset variables as nothing. A delimiter without its partner is
/// text.
class BACKUP_RUNTIME_API String_Template {
public:
  /// Copies what it needs. With an empty delimiter the pattern has no variables.
  String_Template(std::string const& pattern, std::string const& open, std::string const& close);

  /// Sets a variable; a name the pattern lacks is ignored.
  void set(std::string const& name, std::string const& value);
  void set(std::string const& name, char const* value);
  void set(std::string const& name, bool value);
  void set(std::string const& name, int value) { set(name, static_cast<long long>(value)); }
  void set(std::string const& name, long value) { set(name, static_cast<long long>(value)); }
  void set(std::string const& name, long long value);
  void set(std::string const& name, unsigned int value) { set(name, static_cast<unsigned long long>(value)); }
  void set(std::string const& name, unsigned long value) { set(name, static_cast<unsigned long long>(value)); }
  void set(std::string const& name, unsigned long long value);
  void set(std::string const& name, double value);

  /// Appends the rendered text to `text`.
  void append_to(std::string& text) const;
  std::string str() const;

private:
  struct Piece {
    std::string text;      // before the variable
    std::size_t variable;  // index into values_, or no_variable
  };
  static constexpr std::size_t no_variable = static_cast<std::size_t>(-1);

  std::string* find(std::string const& name);

  std::vector<Piece> pieces_;
  std::map<std::string, std::size_t> names_;
  std::vector<std::string> values_;
};
