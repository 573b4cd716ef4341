// Where the command line writes: standard output through a buffer that keeps its write
// errors. The rendering helpers live in report/text.h; their names are available here too,
// for the commands that print without a report (index).
#pragma once

#include <streambuf>

#include "report/text.h"

namespace quarry::cli {

using report::bold;
using report::count_of;
using report::dim;
using report::Json;
using report::location;
using report::optional_json;
using report::print_json;
using report::printable;
using report::Table;
using report::utf8_length;

// A buffered output stream buffer over a file descriptor that remembers the first write
// error (errno) instead of losing it; writes after an error are dropped.
class DescriptorOutput : public std::streambuf {
 public:
  explicit DescriptorOutput(int fd);
  ~DescriptorOutput() override;
  DescriptorOutput(const DescriptorOutput&) = delete;
  DescriptorOutput& operator=(const DescriptorOutput&) = delete;

  // The errno of the first failed write, or 0.
  int error() const { return error_; }

 protected:
  int_type overflow(int_type c) override;
  int sync() override;

 private:
  bool drain();

  int fd_;
  int error_ = 0;
  char buffer_[1 << 16];
};

}  // namespace quarry::cli
