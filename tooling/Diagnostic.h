// One complaint about an input file, with the place it refers to; and how text taken from the
// input is echoed in complaints.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace archspec {

// Where a face may add words of its own to a complaint: the tooling's complaints name no option
// of a face, and each face knows how its user asks for what the complaint is missing.
enum class Hint {
  kNone,
  kForce,         // an input that names another generation or tile: it may be read anyway
  kPackedBytes,   // unprintable bytes where the text of '0' and '1' was expected
  kNoGeneration,  // neither the caller nor the input names the generation
  kNoTile,        // neither the caller nor the input names the tile
};

struct Diagnostic {
  size_t line = 0;    // 1-based; 0 when the complaint is about the file as a whole
  size_t column = 0;  // 1-based; 0 when the line is enough
  std::string message;
  Hint hint = Hint::kNone;
};

// "prog.sparse:7: error: ...", "prog.bits:1:17: error: ..." or "prog.bits: error: ...".
std::string FormatDiagnostic(std::string_view file, const Diagnostic& diagnostic);

// How much a run spends on faults. A "did you mean" hint compares a name with every known name,
// which costs about a millisecond, and a thousand complaints help no one more than twenty.
struct ReportLimits {
  size_t max_errors = 20;  // complaints shown; a reader stops there, a command counts the rest
  size_t max_hints = 5;    // unknown names, from the first on, that get a "did you mean" hint
};

// The most that a complaint shows of one piece of input text.
inline constexpr size_t kEchoBytes = 200;

// Text from an input as a complaint echoes it: control bytes, NUL, DEL, bytes that are not UTF-8
// and invisible or direction-changing characters (a byte-order mark, a zero-width space) written
// as escapes ("\x00", "\t", "\u{feff}"), so that what is shown is what was read; and cut, at a
// character, where what is shown would pass `max_bytes`, with the length of the text said:
// "simd_structIn[0]... (1048576 bytes)".
std::string EchoText(std::string_view text, size_t max_bytes = kEchoBytes);

// How many bytes of `data` no text holds: control bytes other than blanks and line ends, and DEL.
size_t UnprintableBytes(std::string_view data);

// `text` without the UTF-8 byte-order mark that some editors write before the first line: it is
// no character of a listing or a bit text.
std::string_view SkipByteOrderMark(std::string_view text);

}  // namespace archspec
