#include "tests/app/AgentProcess.h"

#include <signal.h>

#include <QDeadlineTimer>
#include <QProcessEnvironment>

namespace kv::test {
namespace {

constexpr int kPatienceMilliseconds = 30'000;

}  // namespace

AgentFolders::AgentFolders() {
  for (const char* folder : {"home", "runtime"}) std::filesystem::create_directory(root / folder);
}

AgentProcess::~AgentProcess() {
  if (process_.state() == QProcess::NotRunning) return;
  process_.kill();
  process_.waitForFinished(kPatienceMilliseconds);
}

void AgentProcess::start(const std::vector<std::string>& wrapper) {
  startWith({"--bundle", folders_.root / "bundle"}, wrapper);
}

void AgentProcess::startWith(const std::vector<std::string>& arguments,
                             const std::vector<std::string>& wrapper) {
  QStringList command;
  for (const std::string& word : wrapper) command.append(QString::fromStdString(word));
  command.append(KV_AGENT);
  for (const std::string& word : arguments) command.append(QString::fromStdString(word));
  auto environment = QProcessEnvironment::systemEnvironment();
  environment.insert("HOME", QString::fromStdString(folders_.root / "home"));
  environment.insert("XDG_RUNTIME_DIR", QString::fromStdString(folders_.root / "runtime"));
  environment.remove("XDG_STATE_HOME");
  process_.setProcessEnvironment(environment);
  process_.start(command.takeFirst(), command);
  process_.waitForStarted(kPatienceMilliseconds);
}

bool AgentProcess::waitFor(const std::string& text) {
  const QDeadlineTimer limit(kPatienceMilliseconds);
  process_.setReadChannel(QProcess::StandardError);
  while (errors().find(text) == std::string::npos) {
    const bool more = process_.waitForReadyRead(static_cast<int>(limit.remainingTime()));
    if (!more) return errors().find(text) != std::string::npos;
  }
  return true;
}

std::optional<int> AgentProcess::exitStatus() {
  if (process_.state() != QProcess::NotRunning) process_.waitForFinished(kPatienceMilliseconds);
  if (process_.state() != QProcess::NotRunning) return std::nullopt;
  const int code = process_.exitCode();
  return process_.exitStatus() == QProcess::NormalExit ? code : -code;
}

std::optional<int> AgentProcess::exitStatusAfterSignals(int number) {
  const QDeadlineTimer limit(kPatienceMilliseconds);
  do {
    signal(number);
  } while (!process_.waitForFinished(10) && !limit.hasExpired());
  return exitStatus();
}

void AgentProcess::signal(int number) const {
  ::kill(pid(), number);
}

std::string AgentProcess::errors() {
  errors_ += process_.readAllStandardError().toStdString();
  return errors_;
}

}  // namespace kv::test
