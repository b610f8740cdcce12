// The logger: one global instance, levels, trace groups and the check-failure path.
//
//   zu::log->check_fail("check-fail", std::tuple<>(), zu::FmtString("value {} too wide"),
//                       std::tuple(v));            // writes at Level::fatal and ends the process
//   (*zu::log)(zu::Logger::Level::error).message("could not {}", what);
//
// A record is written when its Builder is finished, which the Builder's destructor does. A record
// whose level is not enabled is dropped before its text is formatted.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "zu/Format.h"
#include "zu/SourceLocation.h"

namespace zu {

// A named group of trace records, enabled or not as a whole.
class TraceGroup {
 public:
  constexpr TraceGroup() = default;
  constexpr explicit TraceGroup(const char* name) : name_(name) {}
  std::string_view name() const { return name_; }

  // The group of the records that this thread starts.
  static thread_local TraceGroup current;

 private:
  const char* name_ = "";
};

// The part of the software that a record comes from, found by its source path.
class SoftwareComponent {
 public:
  constexpr SoftwareComponent(const char* name, const char* path_part)
      : name_(name), path_part_(path_part) {}
  std::string_view name() const { return name_; }

  static const SoftwareComponent* unknown();
  // The component whose directory the path lies in, or null.
  static const SoftwareComponent* find_by_path(const char* path);

 private:
  const char* name_;
  const char* path_part_;
};

// A format string, kept apart from the text arguments of check_fail.
struct FmtString {
  constexpr FmtString() = default;
  constexpr FmtString(const char* format) : text(format) {}       // NOLINT: implicit by design
  constexpr FmtString(std::string_view format) : text(format) {}  // NOLINT: implicit by design
  std::string_view text;
};

class Logger {
 public:
  enum class Level : int { fatal = 0, error = 1, warning = 2, info = 3, trace = 4 };

  struct Record {
    Level level;
    SourceLocation location;
    const SoftwareComponent* component;
    TraceGroup group;
    std::string text;
  };

  // Collects one record; writes it when finished or destroyed. Move-only.
  class Builder {
   public:
    Builder() = default;
    Builder(const Logger* logger, Level level, SourceLocation location);
    Builder(Builder&& other) noexcept;
    Builder& operator=(Builder&& other) noexcept;
    Builder(const Builder&) = delete;
    Builder& operator=(const Builder&) = delete;
    ~Builder();

    // Appends one formatted message; formats nothing if the record would be dropped.
    template <class... Args>
    Builder&& message(std::string_view format, const Args&... args) && {
      if (enabled()) {
        format_internal::Buffer buffer;
        format_to<Args...>(buffer, format, args..., location_);
        add_message(std::move(buffer).to_string());
      }
      return std::move(*this);
    }
    void add_message(std::string text);
    void finish() &&;

    // Whether this record will be written at all.
    bool enabled() const;

   private:
    const Logger* logger_ = nullptr;
    Level level_ = Level::info;
    SourceLocation location_;
    const SoftwareComponent* component_ = nullptr;
    TraceGroup group_;
    std::string text_;
  };

  Logger() = default;
  virtual ~Logger() = default;

  Builder operator()(Level level, SourceLocation location = SourceLocation::current()) const;

  // Level filter: levels up to and including `level` are written. Fatal is always written.
  void set_level(Level level) { level_ = level; }
  bool will_log(Level level) const { return level == Level::fatal || level <= level_; }

  // Trace filter: the names of the enabled groups, separated by commas; "*" enables all.
  void set_trace(std::string groups) { trace_ = std::move(groups); }
  bool will_trace(TraceGroup group) const { return will_trace(group.name()); }
  bool will_trace(std::string_view group) const;
  bool might_trace() const { return !trace_.empty(); }

  // Writes one line per record to standard error. At Level::fatal it ends the process and does not
  // return.
  virtual void log_impl(Record record) const;

  // A check failure at Level::fatal: "<label>: <message>", or the label alone for an empty format.
  template <class... LabelArgs, class... Args>
  Builder check_fail(std::string_view label, const std::tuple<LabelArgs...>& label_args,
                     FmtString format, const std::tuple<Args...>& args,
                     SourceLocation location = SourceLocation::current()) const {
    Builder builder = (*this)(Level::fatal, location);
    std::string label_text =
        std::apply([&](const auto&... a) { return zu::format(label, a...); }, label_args);
    if (format.text.empty()) {
      builder.add_message(std::move(label_text));
    } else {
      std::string text =
          std::apply([&](const auto&... a) { return zu::format(format.text, a...); }, args);
      builder.add_message(zu::format("{}: {}", label_text, text));
    }
    return builder;
  }

 private:
  Level level_ = Level::info;
  std::string trace_;
};

// The logger that all records go to. Tests may point it at a logger of their own.
extern Logger* log;

}  // namespace zu
