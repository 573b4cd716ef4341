#include "indexer/index_target.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "storage/database.h"

namespace quarry::indexer {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view TEMPORARY_INFIX = ".tmp-";

std::runtime_error system_error(const std::string& path, std::string_view what) {
  return std::runtime_error(path + ": " + std::string(what) + ": " + std::strerror(errno));
}

// Whether the SQLite database at `path` holds a quarry index. Reads it without writing.
void check_holds_index(const std::string& path) {
  const std::string refusal =
      "not a quarry index, so quarry index will not replace it (choose another --db, or "
      "remove the file)";
  if (!is_sqlite_database(path)) throw std::runtime_error(path + ": " + refusal);
  int tables = 0;
  bool meta = false;
  try {
    Database db = Database::open_readonly(path);
    for (const Row& row :
         db.fetchall("SELECT name FROM sqlite_master WHERE type = 'table' AND name IN "
                     "('meta', 'files', 'symbols', 'edges')")) {
      if (to_text(row[0]) == "meta") meta = true;
      ++tables;
    }
  } catch (const DatabaseError& error) {
    throw std::runtime_error(path + ": an SQLite database that cannot be read (" + error.message() +
                             "); remove it to index anew");
  }
  if (!meta && tables < 3) throw std::runtime_error(path + ": " + refusal);
}

// Only a missing file or an index is ever replaced.
void check_replaceable(const std::string& path) {
  std::error_code ec;
  const auto status = fs::symlink_status(path, ec);
  if (status.type() == fs::file_type::not_found) return;
  if (ec) throw std::runtime_error(path + ": " + ec.message());
  if (fs::is_symlink(status)) {
    throw std::runtime_error(path + ": a symbolic link; give --db the file it points to");
  }
  if (!fs::is_regular_file(status)) {
    throw std::runtime_error(path + ": not a regular file, so quarry index will not replace it");
  }
  check_holds_index(path);
}

// Removes what runs that ended before their rename left beside `path` (the caller holds the
// lock, so no live run owns any of them).
void remove_stale_temporaries(const std::string& path) {
  const fs::path target(path);
  const fs::path dir = target.has_parent_path() ? target.parent_path() : fs::path(".");
  const std::string name = target.filename().string();
  const std::string prefix = name + std::string(TEMPORARY_INFIX);
  std::error_code ec;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string entry = it->path().filename().string();
    if (entry.starts_with(prefix) || entry == name + ".tmp") fs::remove(it->path(), ec);
  }
}

// What the signal handler removes: fixed buffers, since it may not allocate.
constexpr std::size_t PATH_CAPACITY = 4096;
constexpr std::array<int, 3> CLEANUP_SIGNALS{SIGINT, SIGTERM, SIGHUP};
char cleanup_temporary[PATH_CAPACITY];
char cleanup_lock[PATH_CAPACITY];
std::array<struct sigaction, CLEANUP_SIGNALS.size()> previous_actions;
std::atomic<bool> cleanup_in_use{false};

extern "C" void remove_on_signal(int signal) {
  unlink(cleanup_temporary);
  unlink(cleanup_lock);
  for (std::size_t i = 0; i < CLEANUP_SIGNALS.size(); ++i) {
    if (CLEANUP_SIGNALS[i] == signal) sigaction(signal, &previous_actions[i], nullptr);
  }
  raise(signal);  // delivered once this handler returns, to the previous action
}

// Registers the files for removal on a signal; false when another target in this process
// already has (only one run per process is covered).
bool register_cleanup(const std::string& temporary, const std::string& lock) {
  if (temporary.size() >= PATH_CAPACITY || lock.size() >= PATH_CAPACITY) return false;
  if (cleanup_in_use.exchange(true)) return false;
  std::memcpy(cleanup_temporary, temporary.c_str(), temporary.size() + 1);
  std::memcpy(cleanup_lock, lock.c_str(), lock.size() + 1);
  struct sigaction action {};
  action.sa_handler = remove_on_signal;
  sigemptyset(&action.sa_mask);
  for (std::size_t i = 0; i < CLEANUP_SIGNALS.size(); ++i)
    sigaction(CLEANUP_SIGNALS[i], &action, &previous_actions[i]);
  return true;
}

void unregister_cleanup() {
  for (std::size_t i = 0; i < CLEANUP_SIGNALS.size(); ++i)
    sigaction(CLEANUP_SIGNALS[i], &previous_actions[i], nullptr);
  cleanup_in_use = false;
}

// Takes the exclusive lock on `lock_path`, waiting for another holder. A holder removes the
// file when it is done, so a lock taken on a file that has since been removed or replaced
// is no lock: try again on the file that is there now.
int take_lock(const std::string& lock_path, const std::function<void()>& waiting) {
  bool told = false;
  while (true) {
    const int fd = open(lock_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) throw system_error(lock_path, "cannot create the lock file");
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK) {
        close(fd);
        throw system_error(lock_path, "cannot lock");
      }
      if (!told && waiting) waiting();
      told = true;
      while (flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) {
          close(fd);
          throw system_error(lock_path, "cannot lock");
        }
      }
    }
    struct stat held {
    }, named{};
    if (fstat(fd, &held) == 0 && stat(lock_path.c_str(), &named) == 0 &&
        held.st_ino == named.st_ino && held.st_dev == named.st_dev) {
      return fd;
    }
    close(fd);
  }
}

}  // namespace

IndexTarget::IndexTarget(const std::string& path, const std::function<void()>& waiting)
    : path_(path), lock_path_(path + ".lock") {
  const fs::path target(path);
  if (target.has_parent_path()) fs::create_directories(target.parent_path());
  check_replaceable(path);
  lock_fd_ = take_lock(lock_path_, waiting);
  try {
    // Checked again: another run may have replaced the file while this one waited.
    check_replaceable(path);
    remove_stale_temporaries(path);
    std::string name = path + std::string(TEMPORARY_INFIX) + "XXXXXX";
    // A signal that comes between creating the file and registering it for removal waits
    // until it is registered.
    sigset_t blocked, previous;
    sigemptyset(&blocked);
    for (const int signal : CLEANUP_SIGNALS)
      sigaddset(&blocked, signal);
    pthread_sigmask(SIG_BLOCK, &blocked, &previous);
    const int fd = mkstemp(name.data());
    if (fd >= 0) removed_on_signal_ = register_cleanup(name, lock_path_);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (fd < 0) throw system_error(path, "cannot create a temporary file beside it");
    // mkstemp makes the file private; the index gets the mode any new file would.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    close(fd);
    temporary_ = std::move(name);
  } catch (...) {
    if (removed_on_signal_) unregister_cleanup();
    unlink(lock_path_.c_str());
    close(lock_fd_);
    throw;
  }
}

IndexTarget::~IndexTarget() {
  if (!committed_ && !temporary_.empty()) unlink(temporary_.c_str());
  if (removed_on_signal_) unregister_cleanup();
  // Removed while still held, so that a run that opens it from now on finds a new file.
  unlink(lock_path_.c_str());
  close(lock_fd_);
}

void IndexTarget::commit() {
  // The index was written without syncing; make it durable before it takes the old one's
  // place, so that a crash cannot leave a renamed but empty file.
  const int fd = open(temporary_.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    fsync(fd);
    close(fd);
  }
  fs::rename(temporary_, path_);
  committed_ = true;
}

}  // namespace quarry::indexer
