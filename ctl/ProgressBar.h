#pragma once
// A line on the terminal that shows how far some work is; nothing if standard error is no terminal.

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace Ctl {

class ProgressBar {
 public:
  // `what`: the work, in a few words.
  explicit ProgressBar(std::string what) : what_(std::move(what)), isShown_(isatty(STDERR_FILENO) == 1) {}
  // Removes the line.
  ~ProgressBar() {
    if (last_ >= 0) std::fputs("\r\x1b[K", stderr);
  }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // `part`: 0 to 1.
  void show(double part) {
    const int percent = static_cast<int>(part * 100);
    if (!isShown_ || percent == last_) return;
    last_ = percent;
    const auto full = static_cast<std::size_t>(percent) * width / 100;
    std::fputs(
        fmt::format("\r{} [{}{}] {:3} %", what_, std::string(full, '#'), std::string(width - full, ' '), percent)
            .c_str(),
        stderr);
  }

 private:
  static constexpr std::size_t width = 40;
  std::string what_;
  bool isShown_;
  int last_ = -1;
};

}  // namespace Ctl
