#include <gmock/gmock.h>

#include <QCoreApplication>
#include <clocale>
#include <cstdlib>

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  const QCoreApplication application(argc, argv);
  ::setenv("TERM", "xterm-256color", 1);  // the terminal logger asks once per process
  std::setlocale(LC_ALL, "C");            // as the agent does
  return RUN_ALL_TESTS();
}
