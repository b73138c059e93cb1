#include "tree_walk.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace {

bool is_dot_or_dot_dot(char const* name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

File_Kind kind_of(mode_t mode) {
  if (S_ISREG(mode)) return File_Kind::file;
  if (S_ISDIR(mode)) return File_Kind::directory;
  return S_ISLNK(mode) ? File_Kind::link : File_Kind::other;
}

// How many directories may be open at once; the rest of the process, above all the database, needs files too.
std::size_t most_open() {
  constexpr long most = 64;
  constexpr long files_elsewhere = 24;
  long const limit = sysconf(_SC_OPEN_MAX);
  return static_cast<std::size_t>(limit < 0 ? most : std::clamp(limit - files_elsewhere, 2L, most));
}

// The directory `name` in `parent`; null with errno when it cannot be opened.
DIR* open_directory(int parent, char const* name) {
  int const descriptor = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  DIR* const directory = fdopendir(descriptor);
  if (directory == nullptr) {
    int const error = errno;
    close(descriptor);
    errno = error;
  }
  return directory;
}

// The next name except "." and ".."; null at the end, and null with errno for an error.
char const* next_name(DIR* directory) {
  for (;;) {
    errno = 0;
    dirent const* const entry = readdir(directory);
    if (entry == nullptr) return nullptr;
    if (!is_dot_or_dot_dot(entry->d_name)) return entry->d_name;
  }
}

}  // namespace

std::string const& Owner_Names::name(uid_t user) {
  auto const known = names_.find(user);
  if (known != names_.end()) return known->second;
  std::array<char, 16384> buffer;
  passwd entry{};
  passwd* found = nullptr;
  getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
  return names_.emplace(user, found != nullptr ? found->pw_name : std::to_string(user)).first->second;
}

Tree_Walk::Tree_Walk(std::string const& directory, Report unreadable)
    : unreadable_(std::move(unreadable)), most_open_(most_open()), path_(directory) {
  if (!enter(AT_FDCWD, directory.c_str())) throw std::system_error(errno, std::generic_category(), directory);
}

bool Tree_Walk::next(File& file) {
  while (!levels_.empty()) {
    Level& level = levels_.back();
    path_.resize(level.path_length);
    if (!read_name(level)) {
      leave();
      continue;
    }
    path_ += name_;
    int const directory = dirfd(level.directory.get());
    struct stat status {};
    if (fstatat(directory, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      report(path_, errno);
      continue;
    }
    file.path = path_;
    file.name = name_;
    file.kind = kind_of(status.st_mode);
    file.size = file.kind == File_Kind::file ? status.st_size : 0;
    file.modified = status.st_mtime;
    file.owner = owners_.name(status.st_uid);
    if (file.kind == File_Kind::directory && !enter(directory, name_.c_str())) report(path_, errno);
    return true;
  }
  return false;
}

// Reads the next name of the level into `name_`; false after the last.
bool Tree_Walk::read_name(Level& level) {
  if (level.is_kept) {
    if (level.next_name == level.names.size()) return false;
    name_ = level.names.c_str() + level.next_name;
    level.next_name += name_.size() + 1;
    return true;
  }
  char const* const name = next_name(level.directory.get());
  if (name != nullptr) {
    name_ = name;
  } else if (errno != 0) {
    report(path_, errno);
  }
  return name != nullptr;
}

// Opens the directory at `path_`, `name` in `parent`, and goes on in it. False with errno when it cannot be opened.
bool Tree_Walk::enter(int parent, char const* name) {
  Directory directory(open_directory(parent, name));
  struct stat status {};
  if (directory == nullptr || fstat(dirfd(directory.get()), &status) != 0) return false;
  if (path_.back() != '/') path_ += '/';
  Level& level = levels_.emplace_back();
  level.directory = std::move(directory);
  level.path_length = path_.size();
  level.device = status.st_dev;
  level.number = status.st_ino;
  if (levels_.size() - first_open_ == most_open_) close_outermost();
  return true;
}

// The top stays open: closed directories can be found again from there.
void Tree_Walk::close_outermost() {
  Level& level = levels_[first_open_++];
  if (!level.is_kept) {
    while (char const* const name = next_name(level.directory.get())) level.names.append(name, std::strlen(name) + 1);
    if (errno != 0) report(path_.substr(0, level.path_length), errno);
    level.is_kept = true;
  }
  level.directory.reset();
}

// Leaves the current directory. When its parent cannot be opened again, the parent's remaining names are lost.
void Tree_Walk::leave() {
  std::size_t const last = levels_.size() - 1;
  if (last > 1 && levels_[last - 1].directory == nullptr) {
    Level& parent = levels_[last - 1];
    parent.directory = reopen_parent();
    if (parent.directory != nullptr) {
      first_open_ = last - 1;
    } else if (parent.next_name < parent.names.size()) {
      report(path_.substr(0, parent.path_length), errno);
      parent.next_name = parent.names.size();
    }
  }
  levels_.pop_back();
  first_open_ = std::min(first_open_, std::max<std::size_t>(levels_.size(), 1));
}

// Opens the parent of the current directory; null with errno when neither ".." nor its path leads there.
Tree_Walk::Directory Tree_Walk::reopen_parent() const {
  std::size_t const index = levels_.size() - 2;
  auto const is_parent = [&](Directory const& directory) {
    struct stat status {};
    return directory != nullptr && fstat(dirfd(directory.get()), &status) == 0 &&
           status.st_dev == levels_[index].device && status.st_ino == levels_[index].number;
  };
  Directory directory;
  if (levels_.back().directory != nullptr) directory.reset(open_directory(dirfd(levels_.back().directory.get()), ".."));
  if (is_parent(directory)) return directory;
  int from = dirfd(levels_.front().directory.get());
  for (std::size_t i = 1; i <= index; ++i) {
    std::size_t const begin = levels_[i - 1].path_length;
    directory.reset(open_directory(from, path_.substr(begin, levels_[i].path_length - 1 - begin).c_str()));
    if (directory == nullptr) return directory;
    from = dirfd(directory.get());
  }
  if (is_parent(directory)) return directory;
  errno = ENOENT;  // another directory is there now
  return nullptr;
}

void Tree_Walk::report(std::string const& path, int error) const {
  unreadable_(path, std::generic_category().message(error));
}
