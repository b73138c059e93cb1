#pragma once

#include <string>

/// What an entry of a directory is. The numbers are stored.
enum class File_Kind : int { none = 0, file = 1, directory = 2, link = 3, other = 4 };

/// One entry of a directory tree. Path and name are the bytes the file system gave, whatever their encoding.
struct File {
  std::string path;  ///< absolute
  std::string name;  ///< the path's last component
  File_Kind kind = File_Kind::none;
  long long size = 0;      ///< bytes of a regular file; 0 for every other kind
  long long modified = 0;  ///< POSIX seconds
  std::string owner;       ///< the user's name, or the number of a user without one
};

/// The word for a stored number; null for a number that is no kind.
char const* kind_word(long long number);
/// The kind of a word or of a number in decimal; `none` for any other text.
File_Kind kind_from_text(std::string const& text);
