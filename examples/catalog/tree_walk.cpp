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

// Directories to hold open at once; the rest of the process, the database first, needs some files too.
std::size_t most_levels() {
  constexpr long files_elsewhere = 24;
  return static_cast<std::size_t>(std::clamp(sysconf(_SC_OPEN_MAX) - files_elsewhere, 1L, 500L));
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
    : unreadable_(std::move(unreadable)), most_levels_(most_levels()), path_(directory) {
  if (!enter(AT_FDCWD, directory.c_str())) throw std::system_error(errno, std::generic_category(), directory);
}

bool Tree_Walk::next(File& file) {
  while (!levels_.empty()) {
    DIR* const directory = levels_.back().directory.get();
    path_.resize(levels_.back().path_length);
    errno = 0;
    dirent const* const entry = readdir(directory);
    if (entry == nullptr) {
      if (errno != 0) report(errno);
      levels_.pop_back();
      continue;
    }
    if (is_dot_or_dot_dot(entry->d_name)) continue;
    path_ += entry->d_name;
    struct stat status {};
    if (fstatat(dirfd(directory), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      report(errno);
      continue;
    }
    file.path = path_;
    file.name = entry->d_name;
    file.kind = kind_of(status.st_mode);
    file.size = file.kind == File_Kind::file ? status.st_size : 0;
    file.modified = status.st_mtime;
    file.owner = owners_.name(status.st_uid);
    if (file.kind == File_Kind::directory && !enter(dirfd(directory), entry->d_name)) report(errno);
    return true;
  }
  return false;
}

// Opens the directory at `path_`, `name` in `parent`, and makes it the one that is read. False with errno when it
// cannot.
bool Tree_Walk::enter(int parent, char const* name) {
  if (levels_.size() == most_levels_) {
    errno = EMFILE;
    return false;
  }
  int const descriptor = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) return false;
  std::unique_ptr<DIR, Close_Directory> directory(fdopendir(descriptor));
  if (directory == nullptr) {
    int const error = errno;
    close(descriptor);
    errno = error;
    return false;
  }
  if (path_.back() != '/') path_ += '/';
  levels_.push_back({std::move(directory), path_.size()});
  return true;
}

void Tree_Walk::report(int error) const { unreadable_(path_, std::generic_category().message(error)); }
