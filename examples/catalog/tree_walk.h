#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "file.h"

/// The names of users by number, each looked up once.
class Owner_Names {
public:
  std::string const& name(uid_t user);

private:
  std::map<uid_t, std::string> names_;
};

/// Walks everything below a directory, one entry in memory at a time, a directory before its content. Symbolic links
/// are entries and are not followed; other file systems are entered.
///
/// The directories on the way down are held open, so a tree deeper than the process may open files is cut there, and
/// said so. What cannot be read is reported and skipped; a directory whose content cannot be read is still an entry.
class Tree_Walk {
public:
  /// Called with the path and the system's reason.
  using Report = std::function<void(std::string const& path, std::string const& reason)>;

  /// Throws std::system_error when `directory`, an absolute path, cannot be opened.
  Tree_Walk(std::string const& directory, Report unreadable);

  /// The next entry; false after the last.
  bool next(File& file);

private:
  struct Close_Directory {
    void operator()(DIR* directory) const noexcept { closedir(directory); }
  };
  struct Level {
    std::unique_ptr<DIR, Close_Directory> directory;
    std::size_t path_length;  // of the directory's path with a slash at its end
  };

  bool enter(int parent, char const* name);
  void report(int error) const;

  Report unreadable_;
  std::size_t const most_levels_;
  std::vector<Level> levels_;
  std::string path_;
  Owner_Names owners_;
};
