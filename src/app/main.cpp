// Tarnwell: the desktop application.
#include <QApplication>
#include <cstdio>

#include "app/application.h"
#include "app/startup_trace.h"

int main(int argc, char** argv) {
  QApplication qapp(argc, argv);
  tw::Application app;
  // Tests watch the hand-over between two copies through these lines.
  const bool reportEvents = qEnvironmentVariableIsSet("TARNWELL_TEST_EVENTS");
  if (reportEvents) {
    QObject::connect(&app, &tw::Application::activatedByAnotherCopy, [](const QByteArray& token) {
      std::printf("activated %s\n", token.constData());
      std::fflush(stdout);
    });
  }
  if (app.start() == tw::Application::Launch::Duplicate) {
    if (reportEvents) std::printf("duplicate\n");
    return 0;
  }
  tw::traceStartupIfAsked(app);
  if (reportEvents) {
    std::printf("ready\n");
    std::fflush(stdout);
  }
  return qapp.exec();
}
