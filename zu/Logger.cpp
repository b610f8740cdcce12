#include "zu/Logger.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace zu {

thread_local TraceGroup TraceGroup::current;

namespace {

constexpr SoftwareComponent kUnknown("unknown", "");
constexpr SoftwareComponent kComponents[] = {
    {"arch_spec", "compiler/arch_spec/"},
    {"zu", "zu/"},
};

const char* LevelWord(Logger::Level level) {
  switch (level) {
    case Logger::Level::fatal:
      return "FATAL";
    case Logger::Level::error:
      return "ERROR";
    case Logger::Level::warning:
      return "WARNING";
    case Logger::Level::info:
      return "INFO";
    case Logger::Level::trace:
      return "TRACE";
  }
  return "LOG";
}

Logger default_logger;

}  // namespace

Logger* log = &default_logger;

const SoftwareComponent* SoftwareComponent::unknown() { return &kUnknown; }

const SoftwareComponent* SoftwareComponent::find_by_path(const char* path) {
  if (path == nullptr) return nullptr;
  for (const SoftwareComponent& component : kComponents) {
    if (std::strstr(path, component.path_part_) != nullptr) return &component;
  }
  return nullptr;
}

bool Logger::will_trace(std::string_view group) const {
  if (trace_ == "*") return true;
  std::string_view rest = trace_;
  while (!rest.empty()) {
    const size_t comma = rest.find(',');
    if (rest.substr(0, comma) == group) return true;
    if (comma == std::string_view::npos) break;
    rest.remove_prefix(comma + 1);
  }
  return false;
}

Logger::Builder Logger::operator()(Level level, SourceLocation location) const {
  return Builder(this, level, location);
}

void Logger::log_impl(Record record) const {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto micros =
      std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count() %
      1000000;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &utc);
  const char* file = record.location.file();
  if (const char* compiler = std::strstr(file, "compiler/arch_spec/")) file = compiler;
  // A fatal record also names the function it comes from: the last thing a reader of a crash sees.
  const bool fatal = record.level == Level::fatal;
  std::fprintf(stderr, "%s.%06lld %s %s:%u] %s%s%s%s\n", stamp, static_cast<long long>(micros),
               LevelWord(record.level), file, record.location.line(), record.text.c_str(),
               fatal ? " (in " : "", fatal ? record.location.function() : "", fatal ? ")" : "");
  if (record.level == Level::fatal) {
    std::fflush(stderr);
    std::abort();
  }
}

Logger::Builder::Builder(const Logger* logger, Level level, SourceLocation location)
    : logger_(logger),
      level_(level),
      location_(location),
      component_(SoftwareComponent::unknown()),
      group_(TraceGroup::current) {}

Logger::Builder::Builder(Builder&& other) noexcept
    : logger_(std::exchange(other.logger_, nullptr)),
      level_(other.level_),
      location_(other.location_),
      component_(other.component_),
      group_(other.group_),
      text_(std::move(other.text_)) {}

Logger::Builder& Logger::Builder::operator=(Builder&& other) noexcept {
  if (this != &other) {
    std::move(*this).finish();
    logger_ = std::exchange(other.logger_, nullptr);
    level_ = other.level_;
    location_ = other.location_;
    component_ = other.component_;
    group_ = other.group_;
    text_ = std::move(other.text_);
  }
  return *this;
}

Logger::Builder::~Builder() { std::move(*this).finish(); }

bool Logger::Builder::enabled() const {
  if (logger_ == nullptr) return false;
  if (level_ == Level::trace) return logger_->might_trace();
  return logger_->will_log(level_);
}

void Logger::Builder::add_message(std::string text) {
  if (text_.empty()) {
    text_ = std::move(text);
  } else {
    text_.append(text);
  }
}

void Logger::Builder::finish() && {
  const Logger* logger = std::exchange(logger_, nullptr);
  if (logger == nullptr) return;
  const bool wanted = level_ == Level::trace
                          ? logger->will_trace(group_) || logger->will_trace(group_.name())
                          : logger->will_log(level_);
  if (!wanted) return;
  if (const SoftwareComponent* found = SoftwareComponent::find_by_path(location_.file())) {
    component_ = found;
  }
  logger->log_impl(Record{level_, location_, component_, group_, std::move(text_)});
  text_.clear();
}

}  // namespace zu
