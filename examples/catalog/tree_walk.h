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
/// The walk holds the directories on the way down open, at most 64, and fewer when the process may not open as many. In
/// a deeper tree it closes the outer ones, keeps their remaining names, and opens them again on the way back. It
/// reports and skips what it cannot read; a directory with unreadable content is still an entry.
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
  using Directory = std::unique_ptr<DIR, Close_Directory>;

  struct Level {
    Directory directory;      // null while it is closed
    std::size_t path_length;  // of the directory's path with a slash at its end
    dev_t device;
    ino_t number;
    bool is_kept = false;  // `names` has the remaining names, each with a zero byte at its end
    std::string names;
    std::size_t next_name = 0;
  };

  bool enter(int parent, char const* name);
  void leave();
  void close_outermost();
  Directory reopen_parent() const;
  bool read_name(Level& level);
  void report(std::string const& path, int error) const;

  Report unreadable_;
  std::size_t const most_open_;
  std::vector<Level> levels_;  // the first one and those from first_open_ on are open
  std::size_t first_open_ = 1;
  std::string path_;
  std::string name_;
  Owner_Names owners_;
};
