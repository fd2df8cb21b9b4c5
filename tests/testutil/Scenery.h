// Builds a small scenery with the real scenery builder, so that tests read real block files.
#pragma once

#include <string>
#include <vector>

#include "testutil/ServerProcess.h"

// A flat scenery of one block of 4 x 4 cells (1/64 degree each) with its south-west corner at
// 46 N 7 E, at dataDir/scenery/<name>; extra arguments go to the builder. True when it was written.
inline bool buildScenery(const std::string& dataDir, const std::string& name = "test",
                         std::vector<std::string> extra = {"--flat=350"}) {
  extra.insert(extra.begin(),
               {"--out=" + dataDir + "/scenery/" + name, "--south=46", "--west=7", "--cells=4", "--single"});
  ServerProcess builder(dataDir + "/builder-output");
  return builder.start(std::string(QV_BINARY_DIR) + "/tools/qvscenery/qvscenery", extra) &&
         builder.waitExit(std::chrono::seconds(60)) && builder.exitCode() == 0;
}
