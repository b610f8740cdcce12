#include "Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "Diagnostic.h"

namespace archspec {
namespace {

std::string Reason(int error) { return std::strerror(error); }

// Closes a descriptor that this code opened, once.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }
  // Closes now, for the error that a delayed write may report only here.
  int Close() {
    const int result = ::close(fd_);
    fd_ = -1;
    return result;
  }

 private:
  int fd_;
};

// Reads `fd` to its end, or until more than `limit` bytes have come.
std::string ReadAll(int fd, const std::string& name, const InputLimit& limit, InputResult& result) {
  std::string data;
  char buffer[1 << 16];
  while (true) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      result.error = "cannot read " + name + ": " + Reason(errno);
      return {};
    }
    if (n == 0) return data;
    if (data.size() + static_cast<size_t>(n) > limit.bytes) {
      result.error = "cannot read " + name + ": more than " + std::to_string(limit.bytes) +
                     " bytes, the most " + limit.what + " may take; stopped reading there";
      return {};
    }
    data.append(buffer, static_cast<size_t>(n));
  }
}

}  // namespace

std::string InputName(std::string_view path) {
  return path == "-" ? std::string("<stdin>") : EchoText(path);
}

InputResult ReadInput(const std::string& path, const InputLimit& limit) {
  InputResult result;
  const std::string name = InputName(path);
  if (path == "-") {
    result.data = ReadAll(STDIN_FILENO, name, limit, result);
    return result;
  }
  Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) {
    result.error = "cannot read " + name + ": " + Reason(errno);
    return result;
  }
  // A regular file says its size: refuse a large one without reading it.
  struct stat status {};
  if (::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
      static_cast<unsigned long long>(status.st_size) > limit.bytes) {
    result.error = "cannot read " + name + ": " + std::to_string(status.st_size) +
                   " bytes, more than the " + std::to_string(limit.bytes) + " that " + limit.what +
                   " may take";
    return result;
  }
  result.data = ReadAll(file.get(), name, limit, result);
  return result;
}

std::optional<std::string> WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return Reason(errno);
    }
    data.remove_prefix(static_cast<size_t>(n));
  }
  return std::nullopt;
}

std::optional<std::string> WriteFileWhole(const std::string& path, std::string_view data) {
  const std::string name = EchoText(path);
  const auto failed = [&](int error) {
    return std::optional<std::string>("cannot write " + name + ": " + Reason(error));
  };

  // Devices and pipes cannot be replaced, only written; a link is followed to the file it names,
  // which is replaced in its own directory.
  std::string target = path;
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) {
    if (!S_ISREG(status.st_mode)) {
      if (S_ISDIR(status.st_mode)) return failed(EISDIR);
      Descriptor out(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
      if (out.get() < 0) return failed(errno);
      if (const auto error = WriteAll(out.get(), data))
        return "cannot write " + name + ": " + *error;
      if (out.Close() != 0) return failed(errno);
      return std::nullopt;
    }
    char resolved[PATH_MAX];
    if (::realpath(path.c_str(), resolved) != nullptr) target = resolved;
  }

  std::string temporary = target + ".XXXXXX";
  Descriptor out(::mkstemp(temporary.data()));
  if (out.get() < 0) return failed(errno);
  // mkstemp makes the file private; the output gets the mode a new file gets, or the one the
  // replaced file had.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  const mode_t mode = status.st_mode != 0 ? (status.st_mode & 07777) : (0666 & ~mask);
  int error = 0;
  if (::fchmod(out.get(), mode) != 0) error = errno;
  if (error == 0) {
    if (const auto reason = WriteAll(out.get(), data)) {
      ::unlink(temporary.c_str());
      return "cannot write " + name + ": " + *reason;
    }
  }
  if (error == 0 && ::fsync(out.get()) != 0) error = errno;
  if (out.Close() != 0 && error == 0) error = errno;
  if (error == 0 && ::rename(temporary.c_str(), target.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlink(temporary.c_str());
    return failed(error);
  }
  return std::nullopt;
}

}  // namespace archspec
