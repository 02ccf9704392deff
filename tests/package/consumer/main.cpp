// A program that knows the logging library from its package alone.
#include <fstream>
#include <iostream>
#include <memory>

#include "logging/DDFileLogger.h"
#include "logging/DDLogFileManagerDefault.h"
#include "logging/FormatterSch.h"
#include "logging/Log.h"

int main(int, char** arguments) {
  const auto manager = std::make_shared<kv::DDLogFileManagerDefault>(arguments[1]);
  const auto logger = kv::DDFileLogger::create(manager);
  logger->setLogFormatter(std::make_shared<kv::FormatterSch>());
  kv::DDLog::addLogger_withLevel(logger, kv::LogLevel::kInfo);
  LOG_INFO("{} is {}", "seven", 7);
  LOG_DEBUG("not for this logger");
  kv::DDLog::flushLog();
  const auto paths = manager->sortedLogFilePaths();
  if (paths.empty()) return 1;
  std::ifstream file(paths.front());
  std::string time, arrow, text;
  while (file >> time >> arrow && std::getline(file >> std::ws, text)) {
    std::cout << "the log says: " << text << "\n";
  }
  return text == "seven is 7" ? 0 : 1;
}
