#include "cli/output.h"

#include <unistd.h>

#include <cerrno>

namespace quarry::cli {

DescriptorOutput::DescriptorOutput(int fd) : fd_(fd) {
  setp(buffer_, buffer_ + sizeof buffer_);
}

DescriptorOutput::~DescriptorOutput() {
  drain();
}

bool DescriptorOutput::drain() {
  const char* next = pbase();
  const char* end = pptr();
  while (next < end && error_ == 0) {
    const ssize_t written = ::write(fd_, next, static_cast<std::size_t>(end - next));
    if (written < 0) {
      if (errno == EINTR) continue;
      error_ = errno;
    } else {
      next += written;
    }
  }
  setp(buffer_, buffer_ + sizeof buffer_);
  return error_ == 0;
}

DescriptorOutput::int_type DescriptorOutput::overflow(int_type c) {
  if (!drain()) return traits_type::eof();
  if (!traits_type::eq_int_type(c, traits_type::eof())) {
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
  }
  return traits_type::not_eof(c);
}

int DescriptorOutput::sync() {
  return drain() ? 0 : -1;
}

}  // namespace quarry::cli
