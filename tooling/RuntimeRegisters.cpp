#include "RuntimeRegisters.h"

#include <cstring>

#include "RecordCatalog.h"
#include "compiler/arch_spec/gen/GenerationTable.h"

namespace archspec {

std::vector<const RuntimeRegisterRow*> RuntimeRegistersOf(const zu::spec::ArchVersion& version,
                                                          const TileType& tile) {
  std::vector<const RuntimeRegisterRow*> out;
  const zu::spec::GenerationRow* serving = zu::spec::ServingGeneration(version);
  if (serving == nullptr) return out;
  // A generation that answers as another one (uko as ko) has that one's registers.
  const char* column = *serving->answers_as != '\0' ? serving->answers_as : serving->code_name;
  for (const RuntimeRegisterRow& row : RuntimeRegisterRows()) {
    if (std::strcmp(row.generation, column) == 0 && std::strcmp(row.tile, tile.name) == 0)
      out.push_back(&row);
  }
  return out;
}

std::string_view RuntimeRegisterNoteOf(const RuntimeRegisterRow& row) {
  for (const RuntimeRegisterNote& note : RuntimeRegisterNotes()) {
    if (std::strcmp(note.source, row.source) == 0) return note.text;
  }
  return {};
}

const char* WordName(RegisterWord word) {
  switch (word) {
    case RegisterWord::kLow:
      return "low word";
    case RegisterWord::kHigh:
      return "high word";
    case RegisterWord::kWhole:
      break;
  }
  return "";
}

const char* WordKey(RegisterWord word) {
  switch (word) {
    case RegisterWord::kLow:
      return "low";
    case RegisterWord::kHigh:
      return "high";
    case RegisterWord::kWhole:
      break;
  }
  return "whole";
}

}  // namespace archspec
