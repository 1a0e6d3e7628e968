// World files: reading them, writing them, finding the ones that come with the simulator.
#pragma once

#include <string>
#include <vector>

#include "document.h"
#include "world.h"

namespace hmxsim {

// The world that the document describes. Throws DocumentError naming file, line and path of what is wrong.
World readWorld(const Document& document);

// The world as a document that reads as the same world; `indented` is for people.
std::string writeWorld(World& world, bool indented);

// Where the sample worlds may be, seen from the program: below the install prefix, or in a tree around the build folder.
std::vector<std::string> worldFolders(const std::string& program);

// The file for what the command line says: a file's name, a sample's ("one_screen"), or "" for the standard sample. Throws
// DocumentError, with what was tried, when there is none.
std::string findWorld(const std::string& wanted, const std::vector<std::string>& folders);

}  // namespace hmxsim
