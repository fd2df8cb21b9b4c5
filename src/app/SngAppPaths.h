// The directories the server works in, set once at start-up and read-only afterwards.
#pragma once

#include <string>

extern std::string appDir;   // cleaned absolute directory of the executable
extern std::string dataDir;  // sceneries lie in dataDir + "/scenery/"; may stay empty
extern std::string userDir;  // the server's own files lie in userDir + "/servers/"

// Reads "-datadir=" and "-userdir=", searches for the data directory above the executable when none
// is given, and creates the per-user directory tree when none is given and it does not exist yet.
// Reports success in every case.
bool initApplicationPaths(int argc, char** argv);
