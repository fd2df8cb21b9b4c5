#include "TerrainTestSupport.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "toolkit/BtkLogger.h"

namespace terrain_test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "qv-terrain-XXXXXX").string();
  if (!mkdtemp(pattern.data())) ADD_FAILURE() << "mkdtemp failed";
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

LogCapture::LogCapture(const TempDir& dir) : path_(dir / "test.log") {
  EXPECT_TRUE(btkLogger.open(path_, BTK_DEBUG, false));
}

LogCapture::~LogCapture() {
  btkLogger.closeFile();
  btkLogger.setThreshold(BTK_INFO);
}

std::string LogCapture::text() const {
  std::ifstream in(path_);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::vector<uint8_t> readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

qvscenery::Options smallScenery(const std::string& outDir) {
  qvscenery::Options o;
  o.outDir = outDir;
  o.south = 46.0;
  o.west = 7.0;
  o.cellLat = 0.01;
  o.cellLon = 0.01;
  o.cells = 4;
  o.tinLevels = 3;
  return o;
}

std::vector<std::string> build(const qvscenery::Options& options, const qvscenery::ElevationSource& source) {
  const qvscenery::BuildResult result = qvscenery::buildScenery(options, source);
  EXPECT_EQ(result.error, "");
  return result.basePaths;
}

}  // namespace terrain_test
