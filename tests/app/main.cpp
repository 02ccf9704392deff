#include <gmock/gmock.h>

#include <QCoreApplication>
#include <clocale>

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  const QCoreApplication application(argc, argv);
  std::setlocale(LC_ALL, "C");  // as the agent does
  return RUN_ALL_TESTS();
}
