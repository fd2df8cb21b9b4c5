#include "app/SngAppPaths.h"

#include <unistd.h>

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include "app/SngOptions.h"

std::string appDir;
std::string dataDir;
std::string userDir;

namespace {

std::string executableDirectory() {
  char buffer[4096];
  const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (n <= 0) return QDir::cleanPath(QDir::currentPath()).toStdString();
  buffer[n] = '\0';
  return QDir::cleanPath(QFileInfo(QString::fromLocal8Bit(buffer)).absolutePath()).toStdString();
}

// Walks up from the executable's parent; the executable's own directory is never tried.
std::string searchDataDirectory(const std::string& startDir) {
  QDir level(QString::fromStdString(startDir));
  if (!level.cdUp()) return std::string();
  for (;;) {
    const QString legacy = level.absolutePath() + "/QuorvaneLegacy/Quorvane2/data";
    if (QFileInfo::exists(legacy)) return legacy.toStdString();
    const QString plain = level.absolutePath() + "/data";
    if (QFileInfo::exists(plain)) return plain.toStdString();
    if (!level.cdUp()) return std::string();
  }
}

std::string defaultUserDirectory() {
  const QString root = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
  if (!QFileInfo::exists(root)) {
    QDir().mkpath(root);
    for (const char* sub : {"/IGC", "/log", "/aircraft", "/scenery", "/situation", "/servers"}) {
      QDir().mkpath(root + sub);
    }
  }
  return root.toStdString();
}

}  // namespace

bool initApplicationPaths(int argc, char** argv) {
  SngOptions options;
  sngScanOptions(argc, argv, options, nullptr);  // only the two directory options matter here
  dataDir = options.datadir;
  userDir = options.userdir;
  appDir = executableDirectory();
  if (dataDir.empty()) dataDir = searchDataDirectory(appDir);
  if (userDir.empty()) userDir = defaultUserDirectory();
  return true;
}
