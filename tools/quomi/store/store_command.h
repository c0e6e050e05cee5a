#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace quomi::tool {

/// `quomi store make --version 4..13 --rows N FILE.sqlite` makes a store of that version: N rows of each entity (one of
/// those that have one) with values of every shape, the same at every run, each rule with an owner.
/// `quomi store info FILE.sqlite` tells a store's version and how many rows each entity has, and changes nothing.
///
/// `args` are those after "store". Exit status: 0 done (or help was asked for); 2 the arguments are wrong; 1 the file
/// cannot be made (one that is there is never replaced) or is no store; both with one line on `err`.
int runStore(std::vector<std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quomi::tool
