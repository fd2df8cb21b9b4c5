// Directory listing by the wildcard pattern that terrain start-up uses.
#pragma once

#include <string>
#include <vector>

// Appends the names in dir that match "*" + infix + "*" (files and directories alike, in the order the
// file system returns them; "." and ".." never) and returns the size of names afterwards, or -1 with
// names unchanged when nothing matches or dir can't be read.
int btkListDirectory(const std::string& dir, const std::string& infix, std::vector<std::string>& names);
