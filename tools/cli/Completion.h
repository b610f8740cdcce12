// The bash completion of archspec, made from the tool's own subcommands and options, so that it
// completes exactly what the tool takes.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace archspec {

// A bash script that completes `archspec`: the subcommands, each one's options, the values of
// --arch (`arches`) and of options that take a set of words (--format), the tiles (`tiles`) where
// a subcommand takes a TILE, and file names elsewhere.
std::string BashCompletion(const CLI::App& app, const std::vector<std::string>& arches,
                           const std::vector<std::string>& tiles);

}  // namespace archspec
