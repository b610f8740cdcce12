// The archspec tool's words where the tooling's complaints leave room for a face's own (a
// Diagnostic's hint): the tool and the reference site's decoder page, which speaks to the tool's
// users, say them alike. Not installed: a program outside the project has options of its own.
#pragma once

#include <string>

#include "Diagnostic.h"

namespace archspec {

// The complaint's message with the tool's words for its hint.
inline std::string InToolWords(const Diagnostic& diagnostic) {
  switch (diagnostic.hint) {
    case Hint::kForce:
      return diagnostic.message + "; --force reads it anyway";
    case Hint::kPackedBytes:
      return diagnostic.message + " (a file of packed bytes needs --bytes)";
    default:
      return diagnostic.message;
  }
}

}  // namespace archspec
