// The quantity and unit of every hardware parameter, from its name's ending and type: the rule of
// compiler/arch_spec/gen/units.py, generated into a table (ParameterUnits.cpp) at build time, so
// that the tool, the Python package and the reference site give a parameter the same unit.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace archspec {

// One scalar parameter of the constants classes, in the order of the table of parameters.
struct ParameterRow {
  const char* name;      // "cycle_time"
  const char* group;     // its group heading, "Clock, bandwidth and latency of the chip"
  const char* quantity;  // "clock period"; empty where the rule gives the parameter none
  const char* unit;      // "seconds"; empty for a count, a ratio, or a quantity without a unit
  const char* derived;   // a figure the faces show beside the value: "clock", or empty
};

std::span<const ParameterRow> ParameterRows();
// The row of the parameter `name`, or null for a name that is no scalar parameter.
const ParameterRow* FindParameter(std::string_view name);

// A figure derived from a parameter's value: the clock frequency of a clock period.
struct DerivedFigure {
  std::string name;  // "clock frequency"
  double value = 0;  // in `unit`
  std::string unit;  // "hertz"
  std::string text;  // "1.8 GHz"
};
std::optional<DerivedFigure> DeriveFigure(const ParameterRow& row, double value);

// What a listing writes after a parameter's value: "seconds; clock frequency 1.8 GHz",
// "bits", "count"; empty where the rule gives the parameter no quantity.
std::string UnitNote(const ParameterRow& row, std::optional<double> value);

}  // namespace archspec
