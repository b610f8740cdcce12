#include "Files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

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

namespace {

// The descriptor that a path names when it is a name of one of this process's open descriptors:
// /dev/stdout, /dev/fd/1, /proc/self/fd/1. Such a path is the descriptor itself, which may append
// to a file (`>> app.log`): opening it anew would truncate that file, and replacing it would
// replace the file.
std::optional<int> OwnDescriptor(std::string_view path) {
  if (path == "/dev/stdin") return 0;
  if (path == "/dev/stdout") return 1;
  if (path == "/dev/stderr") return 2;
  const std::string own = "/proc/" + std::to_string(::getpid()) + "/fd/";
  for (const std::string_view prefix :
       {std::string_view("/dev/fd/"), std::string_view("/proc/self/fd/"),
        std::string_view("/proc/thread-self/fd/"), std::string_view(own)}) {
    if (path.size() <= prefix.size() || path.substr(0, prefix.size()) != prefix) continue;
    const std::string_view digits = path.substr(prefix.size());
    if (digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string_view::npos) {
      return std::nullopt;
    }
    return std::stoi(std::string(digits));
  }
  return std::nullopt;
}

// The signals that end a process by default and that a user or a system sends to one
// (interruption, hang-up, termination, a closed pipe, limits): blocked while a temporary file
// exists, so that none ends the process between writing the file and renaming it. A signal that
// comes then is delivered once the file is renamed or removed.
class SignalsHeld {
 public:
  SignalsHeld() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGALRM, SIGUSR1, SIGUSR2,
                             SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF}) {
      sigaddset(&set, signal);
    }
    ::sigprocmask(SIG_BLOCK, &set, &saved_);
  }
  ~SignalsHeld() { ::sigprocmask(SIG_SETMASK, &saved_, nullptr); }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t saved_;
};

// Writes `data` over what `fd` holds from its position (or appends, for a descriptor opened so).
std::optional<std::string> WriteDescriptor(int fd, const std::string& name, std::string_view data) {
  if (const auto error = WriteAll(fd, data)) return "cannot write " + name + ": " + *error;
  return std::nullopt;
}

// Opens `path` for writing and writes `data` into it: a device, a pipe, a link or a file with other
// names is written where it is, never replaced.
std::optional<std::string> WriteInPlace(const std::string& path, const std::string& name,
                                        std::string_view data, bool truncate) {
  Descriptor out(::open(path.c_str(), O_WRONLY | O_CLOEXEC | (truncate ? O_TRUNC : 0)));
  if (out.get() < 0) return "cannot write " + name + ": " + Reason(errno);
  if (auto error = WriteDescriptor(out.get(), name, data)) return error;
  if (out.Close() != 0) return "cannot write " + name + ": " + Reason(errno);
  return std::nullopt;
}

// The directory of `path`, as a prefix for a name in it: "dir/" or "".
std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

}  // namespace

std::optional<std::string> WriteFileWhole(const std::string& path, std::string_view data) {
  const std::string name = EchoText(path);
  const auto failed = [&](int error) {
    return std::optional<std::string>("cannot write " + name + ": " + Reason(error));
  };
  if (path.empty()) return failed(ENOENT);
  if (const std::optional<int> fd = OwnDescriptor(path)) {
    return WriteDescriptor(*fd, name, data);
  }

  // Only a regular file of its own, under its one name, is replaced; whatever else the path is
  // (a device, a pipe, a symbolic link, a file with other hard links) is written where it is,
  // so that what it points to or shares stays what it is.
  struct stat link {};
  const bool exists = ::lstat(path.c_str(), &link) == 0;
  if (!exists && errno != ENOENT) return failed(errno);
  if (exists) {
    struct stat status {};
    const bool target = ::stat(path.c_str(), &status) == 0;
    if (target && S_ISDIR(status.st_mode)) return failed(EISDIR);
    if (S_ISLNK(link.st_mode)) return WriteInPlace(path, name, data, S_ISREG(status.st_mode));
    if (!S_ISREG(link.st_mode)) return WriteInPlace(path, name, data, false);
    if (link.st_nlink > 1) return WriteInPlace(path, name, data, true);
    // A file that the user may not write is refused, as cp refuses it, not replaced.
    if (::access(path.c_str(), W_OK) != 0) return failed(errno);
  }

  // A short name of its own beside the output: a name near the file system's limit still fits.
  std::string temporary = DirectoryOf(path) + ".archspec-XXXXXX";
  const SignalsHeld held;
  Descriptor out(::mkstemp(temporary.data()));
  if (out.get() < 0) {
    const int error = errno;
    // A file that may be written in a directory that may not: written where it is.
    if (exists && (error == EACCES || error == EPERM || error == EROFS)) {
      return WriteInPlace(path, name, data, true);
    }
    return failed(error);
  }
  // mkstemp makes the file private; the output gets the mode a new file gets, or the one (and the
  // owner, where that may be given) the replaced file had.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  const mode_t mode = exists ? (link.st_mode & 07777) : (0666 & ~mask);
  if (exists) (void)!::fchown(out.get(), link.st_uid, link.st_gid);
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
  if (error == 0 && ::rename(temporary.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlink(temporary.c_str());
    return failed(error);
  }
  return std::nullopt;
}

}  // namespace archspec
