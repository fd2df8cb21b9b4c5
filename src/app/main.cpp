// Process entry of the dedicated server.
#include <clocale>
#include <cstdio>

#include <QCoreApplication>

#include "app/SngAppPaths.h"
#include "app/SngServer.h"
#include "toolkit/BtkExit.h"

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  QCoreApplication::setOrganizationName("Quorvane");
  QCoreApplication::setOrganizationDomain("quorvane.example");
  QCoreApplication::setApplicationName("Quorvane Simulator");
  QCoreApplication::setApplicationVersion(QString("%1.%2.%3").arg(1).arg(20).arg(2));
  // Numbers in log lines and files never follow the operator's language settings.
  setlocale(LC_ALL, "C");

  if (!initApplicationPaths(argc, argv)) {
    fputs("Fatal Error: Initialize application paths failed. Check installation!\n", stderr);
    return 1;
  }
  sngInstallStopSignalHandlers();
  SngServer server;
  if (!server.init(argc, argv)) btkExit(1);
  server.run();
}
