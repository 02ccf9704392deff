#pragma once

#include <cstddef>
#include <string>

#include "tools/kvbackup/CopyJob.h"

namespace kv {

/// One line of a terminal that shows how far a copy is.
///
/// Threads    one at a time.
/// Errors     none; what the terminal does not take is lost.
class ProgressBar {
 public:
  /// Shows nothing when the descriptor is no terminal.
  explicit ProgressBar(int descriptor);

  bool isShown() const { return isTerminal_; }

  void show(const std::string& label, const CopyProgress& progress);

  /// Takes the bar away, so that other lines can be written.
  void clear();

  /// "Documents [#####-----]  50%    1.2 GB  110.56MB/s", in at most `width` places.
  static std::string line(const std::string& label, const CopyProgress& progress,
                          std::size_t width);

 private:
  void write(const std::string& text) const;
  std::size_t width() const;

  const int descriptor_;
  const bool isTerminal_;
  std::string drawn_;
};

}  // namespace kv
