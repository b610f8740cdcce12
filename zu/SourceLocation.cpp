#include "zu/SourceLocation.h"

namespace zu {

const SourceLocationBase SourceLocationBase::kUnknownSourceLocation = {"<unknown>", "<unknown>", 0,
                                                                       0};

}  // namespace zu
