// The file an index run writes: checked before anything is replaced, locked against other
// runs, built in a temporary file of its own and renamed into place only when complete.
#pragma once

#include <functional>
#include <string>

namespace quarry::indexer {

class IndexTarget {
 public:
  // Prepares to replace the index at `path`:
  // - `path` must not exist or be an SQLite database that holds a quarry index (a `meta`
  //   table, or the `files`, `symbols` and `edges` tables); anything else (a source file,
  //   someone's notes, a directory, a link) throws std::runtime_error naming it, before
  //   anything is written.
  // - Takes an advisory lock (the file `path` + ".lock", removed at the end) so that two runs
  //   on one index never interleave; when another run holds it, calls `waiting` once and
  //   waits for that run to end.
  // - Removes the temporary files that runs killed before they finished left beside `path`,
  //   then creates a fresh one with a unique name (`path` + ".tmp-XXXXXX").
  // While the target is alive, SIGINT, SIGTERM and SIGHUP remove the temporary file and the
  // lock file before the process ends as the signal says. Creates the parent directory of
  // `path` when missing. Throws std::runtime_error when the lock or the temporary file
  // cannot be made.
  explicit IndexTarget(const std::string& path, const std::function<void()>& waiting = {});
  // Removes the temporary file unless committed, and releases the lock.
  ~IndexTarget();
  IndexTarget(const IndexTarget&) = delete;
  IndexTarget& operator=(const IndexTarget&) = delete;

  // The empty temporary file to write the new index into.
  const std::string& temporary() const { return temporary_; }

  // Renames the temporary file over `path`: readers see the old index or the new one,
  // never a part. Throws std::filesystem::filesystem_error when the rename fails (the
  // temporary file is removed all the same, by the destructor).
  void commit();

 private:
  std::string path_;
  std::string lock_path_;
  std::string temporary_;
  int lock_fd_ = -1;
  bool committed_ = false;
  bool removed_on_signal_ = false;  // whether the signal handler knows this target
};

}  // namespace quarry::indexer
