#pragma once

#include <cstdint>
#include <string_view>

#include "logging/DDLogMessage.h"

namespace kv {

/// The place of a log call, as the macros of Log.h take it down at compile time. The texts must
/// live as long as the program.
struct LogSite {
  std::string_view file;
  std::string_view fileName;
  std::string_view function;
  std::uint64_t line = 0;

  constexpr LogSite(std::string_view filePath, std::string_view functionName,
                    std::uint64_t lineNumber)
      : file(filePath),
        fileName(fileNameWithoutExtension(filePath)),
        function(functionName),
        line(lineNumber) {}
};

}  // namespace kv
