#include "tools/kvbackup/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace kv {
namespace {

struct Pipe {
  Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
      throw std::system_error(errno, std::generic_category(), "pipe");
    }
    read = ends[0];
    write = ends[1];
  }
  ~Pipe() {
    if (read >= 0) ::close(read);
    ::close(write);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  /// Hands the end for reading over to the caller.
  int takeRead() {
    const int end = read;
    ::fcntl(end, F_SETFL, O_NONBLOCK);
    read = -1;
    return end;
  }

  int read;
  int write;
};

void restoreSignals() {
  for (int signal = 1; signal < NSIG; ++signal) ::signal(signal, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// Becomes the program. Between fork and exec, so only plain system calls.
[[noreturn]] void becomeProgram(char* const* arguments, const Pipe& output, const Pipe& errors,
                                pid_t parent) {
  restoreSignals();
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  // No signal comes for a parent that died before it was asked for.
  if (::getppid() != parent) ::_exit(127);
  const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::dup2(null, STDIN_FILENO);
  ::dup2(output.write, STDOUT_FILENO);
  ::dup2(errors.write, STDERR_FILENO);
  ::execv(arguments[0], arguments);
  const char* const reason = std::strerror(errno);
  [[maybe_unused]] ssize_t written = ::write(STDERR_FILENO, reason, std::strlen(reason));
  written = ::write(STDERR_FILENO, "\n", 1);
  ::_exit(127);
}

}  // namespace

ChildProcess::ChildProcess(const std::string& executable,
                           const std::vector<std::string>& arguments) {
  std::vector<char*> pointers{const_cast<char*>(executable.c_str())};
  for (const std::string& argument : arguments) {
    pointers.push_back(const_cast<char*>(argument.c_str()));
  }
  pointers.push_back(nullptr);
  Pipe output;
  Pipe errors;
  const pid_t parent = ::getpid();
  pid_ = ::fork();
  if (pid_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid_ == 0) becomeProgram(pointers.data(), output, errors, parent);
  output_ = output.takeRead();
  errors_ = errors.takeRead();
}

ChildProcess::~ChildProcess() {
  ::close(output_);
  ::close(errors_);
  if (pid_ < 0) return;
  ::kill(pid_, SIGKILL);
  while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void ChildProcess::signal(int number) const {
  if (pid_ > 0) ::kill(pid_, number);
}

std::optional<int> ChildProcess::reap() {
  int status = 0;
  if (::waitpid(pid_, &status, WNOHANG) != pid_) return std::nullopt;
  pid_ = -1;
  return status;
}

}  // namespace kv
