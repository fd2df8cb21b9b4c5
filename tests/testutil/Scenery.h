// Builds a small scenery with the real scenery builder, so that tests read real block files.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "testutil/Files.h"
#include "testutil/ServerProcess.h"

// A flat scenery of one block of 4 x 4 cells (1/64 degree each) with its south-west corner at
// 46 N 7 E, at dataDir/scenery/<name>; extra arguments go to the builder. True when it was written.
inline bool buildScenery(const std::string& dataDir, const std::string& name = "test",
                         std::vector<std::string> extra = {"--flat=350"}) {
  std::vector<std::string> args{"--out=" + dataDir + "/scenery/" + name, "--south=46", "--west=7", "--cells=4",
                                "--single"};
  args.insert(args.end(), extra.begin(), extra.end());
  writeText(dataDir + "/builder-output/.keep", "");
  ServerProcess builder(std::string(QV_BINARY_DIR) + "/tools/qvscenery/qvscenery", args, {},
                        dataDir + "/builder-output");
  if (!builder.start() || !builder.waitExit(std::chrono::seconds(60))) return false;
  return builder.exitCode() == 0;
}
