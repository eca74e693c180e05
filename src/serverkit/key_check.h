// key_check.h - judges the settings of a configuration file by the tables of the programs: keys
// that nobody knows, and values of which nothing can be made.
//
// A file is shared by every program of a station, and programs may run under any name: what stands
// in another program's branch is no fault, whatever it is. In a branch of its own a program knows
// every key. In one that all share, and in names of branches, only what looks like a slip of the
// pen is one.
#pragma once

#include <vector>

#include "conf_check.h"
#include "keys.h"
#include "settings.h"

namespace serverkit {

// What is wrong with a file for these programs: what loading it loses, what the tables do not know
// or allow, and what a program refuses that reads it, by line. Findings without a line have line 0.
// Notes, and findings in branches of others, are left out unless `every_line` is set.
std::vector<zeb::ConfFinding> check_keys(const zeb::ConfCheck &file,
                                         const std::vector<const Keys *> &programs,
                                         bool every_line = false);

// What the tables do not know or allow, alone.
std::vector<zeb::ConfFinding> judge_settings(const std::vector<zeb::ConfSetting> &settings,
                                             const std::vector<const Keys *> &programs);

// The settings as a tree, without the comments.
Tree tree_of(const zeb::ConfCheck &file);

} // namespace serverkit
