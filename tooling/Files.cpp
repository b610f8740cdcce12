#include "Files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string_view>
#include <utility>

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

void (*step_observer)(const char* step) = nullptr;
bool unnamed_files = true;

void Step(const char* step) {
  if (step_observer != nullptr) step_observer(step);
}

// A new file for `path` whose content is complete before it takes a name, then renamed over
// `path`: a process ended at any moment (even by SIGKILL) leaves `path` as it was or as it is
// meant to be. Where the file system makes files without a name (O_TMPFILE), the file is written
// unnamed and linked under a temporary name beside the output only once complete, so that a name
// other than `path` exists only between two system calls, link and rename. Elsewhere the file has
// its temporary name from the start.
class Replacement {
 public:
  Replacement(const std::string& path, const std::string& name, mode_t mode,
              std::optional<std::pair<uid_t, gid_t>> owner)
      : path_(path), name_(name), mode_(mode), owner_(owner) {}

  // The outcome of writing through an unnamed file, or nullopt where the file system makes none
  // (or /proc, through which it takes a name, is missing): nothing was made then.
  std::optional<std::optional<std::string>> Unnamed(std::string_view data) {
    if (!unnamed_files) return std::nullopt;
    const std::string directory = DirectoryOf(path_);
    Descriptor out(::open(directory.empty() ? "." : directory.c_str(),
                          O_TMPFILE | O_WRONLY | O_CLOEXEC, mode_));
    if (out.get() < 0) {
      // A refused directory is for the named way to report, or to fall back from.
      if (errno == EACCES || errno == EPERM || errno == EROFS) return std::nullopt;
      if (errno == EISDIR || errno == EOPNOTSUPP || errno == EINVAL) return std::nullopt;
      return Failed(errno);
    }
    if (const std::optional<std::string> error = Fill(out.get(), data)) return error;
    Step("written");
    const std::string self = "/proc/self/fd/" + std::to_string(out.get());
    int error = 0;
    while (true) {
      temporary_ = TemporaryName();
      if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, temporary_.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        break;
      }
      error = errno;
      if (error != EEXIST) break;
    }
    if (error == ENOENT && ::access("/proc/self/fd", F_OK) != 0) return std::nullopt;
    if (error != 0) return Failed(error);
    Step("named");
    if (out.Close() != 0) return Removed(errno);
    return Renamed();
  }

  // Writes through a file that has its temporary name from the start.
  std::optional<std::string> Named(std::string_view data) {
    temporary_ = DirectoryOf(path_) + ".archspec-XXXXXX";
    Descriptor out(::mkstemp(temporary_.data()));
    if (out.get() < 0) {
      const int error = errno;
      directory_refused_ = error == EACCES || error == EPERM || error == EROFS;
      return Failed(error);
    }
    if (const std::optional<std::string> error = Fill(out.get(), data)) {
      ::unlink(temporary_.c_str());
      return error;
    }
    Step("written");
    Step("named");
    if (out.Close() != 0) return Removed(errno);
    return Renamed();
  }

  // Whether the directory refused a new file: one that may be written in place still may be.
  bool directory_refused() const { return directory_refused_; }

 private:
  std::optional<std::string> Failed(int error) const {
    return "cannot write " + name_ + ": " + Reason(error);
  }
  std::optional<std::string> Removed(int error) const {
    ::unlink(temporary_.c_str());
    return Failed(error);
  }
  // The owner, the content and its way to the disk.
  std::optional<std::string> Fill(int fd, std::string_view data) const {
    if (owner_.has_value()) (void)!::fchown(fd, owner_->first, owner_->second);
    // After the owner, whose change may clear the set-id bits: mkstemp makes a private file,
    // and the umask took its part of an unnamed file's mode.
    if (::fchmod(fd, mode_) != 0) return Failed(errno);
    if (const auto reason = WriteAll(fd, data)) return "cannot write " + name_ + ": " + *reason;
    if (::fsync(fd) != 0) return Failed(errno);
    return std::nullopt;
  }
  std::optional<std::string> Renamed() const {
    if (::rename(temporary_.c_str(), path_.c_str()) != 0) return Removed(errno);
    return std::nullopt;
  }
  // A short name of its own beside the output, so that a name near the file system's limit
  // still fits: ".archspec-" and six letters or digits.
  std::string TemporaryName() {
    static constexpr char kLetters[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    std::string temporary = DirectoryOf(path_) + ".archspec-";
    for (int i = 0; i < 6; ++i) temporary.push_back(kLetters[random_() % (sizeof kLetters - 1)]);
    return temporary;
  }

  const std::string& path_;
  const std::string& name_;
  mode_t mode_;
  std::optional<std::pair<uid_t, gid_t>> owner_;
  std::string temporary_;
  bool directory_refused_ = false;
  std::minstd_rand random_{static_cast<std::minstd_rand::result_type>(::getpid()) ^
                           std::random_device()()};
};

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

  const SignalsHeld held;
  // The mode a new file gets, or the one (and the owner, where that may be given) of the file
  // that is replaced.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  Replacement replacement{
      path, name, exists ? (link.st_mode & 07777) : (0666 & ~mask),
      exists ? std::optional<std::pair<uid_t, gid_t>>(std::pair(link.st_uid, link.st_gid))
             : std::nullopt};
  if (const std::optional<std::optional<std::string>> done = replacement.Unnamed(data)) {
    return *done;
  }
  const std::optional<std::string> error = replacement.Named(data);
  // A file that may be written in a directory that may not: written where it is.
  if (exists && replacement.directory_refused()) return WriteInPlace(path, name, data, true);
  return error;
}

namespace files_testing {

void SetStepObserver(void (*observer)(const char* step)) { step_observer = observer; }

void SetUnnamedFiles(bool allowed) { unnamed_files = allowed; }

}  // namespace files_testing

}  // namespace archspec
