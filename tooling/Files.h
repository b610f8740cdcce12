// Reading and writing the files of configurations and listings with every failure reported:
// input is read with checked system calls and refused past a size that no real file reaches
// (so that /dev/zero or a pipe that never ends neither hangs a run nor fills its memory), and
// output is written whole or not at all.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace archspec {

// The most a file of one kind may hold, and how a refusal names that kind.
struct InputLimit {
  size_t bytes;
  const char* what;
};

// The text form of a configuration: at most 50000 bits (the library's bit buffer), with room for
// blanks and line ends between them.
inline constexpr InputLimit kBitTextLimit{1 << 20, "the text form of a configuration"};
// The packed form: 6250 bytes for 50000 bits, with room to say how wrong a size is.
inline constexpr InputLimit kBitBytesLimit{1 << 16, "the packed form of a configuration"};
// A sparse listing: a few lines per leaf of the largest tile, with comments.
inline constexpr InputLimit kListingLimit{4 << 20, "a sparse listing"};
// A configuration whose form is told from what it holds: the largest of the forms above, and
// room for the JSON of every leaf of the largest tile.
inline constexpr InputLimit kConfigurationLimit{4 << 20, "a configuration"};

struct InputResult {
  std::string data;
  std::string error;  // set on failure: "cannot read x.bits: Is a directory"
  bool ok() const { return error.empty(); }
};

// "<stdin>" for "-", else the path as complaints echo it.
std::string InputName(std::string_view path);

// The whole of the file at `path`, or of standard input for "-". Fails on any error of open or
// read (a directory, a closed standard input), and as soon as more than `limit.bytes` have come,
// reading no further.
InputResult ReadInput(const std::string& path, const InputLimit& limit);

// Writes all of `data` to the open descriptor `fd`, through short writes and interruptions.
// Returns the reason on failure ("No space left on device").
std::optional<std::string> WriteAll(int fd, std::string_view data);

// Writes `data` to `path`, all of it prepared before the path is touched. A regular file of its
// own (or a new one) is written whole or not at all: into a new file beside it, renamed over
// `path` once everything is written, so that a failure (or a signal) leaves `path` as it was and
// an input may be rewritten in place. Where the file system allows, the new file has no name
// until it is complete: only between its link under ".archspec-XXXXXX" and the rename may a
// process that is killed leave that name behind. Whatever else the path is is written where it is,
// never replaced: a name of one of the process's descriptors (/dev/stdout, /dev/fd/N,
// /proc/self/fd/N) is that descriptor, appending where it appends; a device or a pipe, a symbolic
// link (through to what it names) and a file with other hard links are opened and written. A file
// that the user may not write is refused. Returns the complaint on failure ("cannot write out.bits:
// Permission denied").
std::optional<std::string> WriteFileWhole(const std::string& path, std::string_view data);

// For tests of the replacement of a file, process-wide.
namespace files_testing {
// Calls `observer` at each step of a replacement: "written" once the content is complete (in a
// file without a name where the file system makes one), "named" once the file has its temporary
// name, just before the rename. Null stops the calls.
void SetStepObserver(void (*observer)(const char* step));
// Whether files without a name are made where the file system allows (the default), or the
// file has its temporary name from the start, as on a file system without them.
void SetUnnamedFiles(bool allowed);
}  // namespace files_testing

}  // namespace archspec
