#include "monitors/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <utility>
#include <vector>

extern "C" {
#include <sys/pidfd.h>  // glibc 2.36 leaves the linkage out
}

namespace ov {
namespace {

using Clock = std::chrono::steady_clock;

// One that the kernel holds, or that may not be killed, is left behind in the end.
constexpr std::chrono::seconds kKillTimeout{30};

struct Pipe {
  UniqueFd read;
  UniqueFd write;
};

Pipe OpenPipe() {
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return {};
  }
  return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

// Returns 0 if the program cannot be started.
pid_t Spawn(const QString &program, const QStringList &arguments, const Pipe &input,
            const Pipe &output) {
  QList<QByteArray> texts{program.toUtf8()};
  for (const QString &argument : arguments) {
    texts.append(argument.toUtf8());
  }
  std::vector<char *> pointers;
  for (QByteArray &text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const bool redirected =
      posix_spawn_file_actions_adddup2(&actions, input.read.Get(), STDIN_FILENO) == 0 &&
      posix_spawn_file_actions_adddup2(&actions, output.write.Get(), STDOUT_FILENO) == 0 &&
      posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0) == 0;
  // Scripts rely on a broken pipe ending them, whatever whoever started the service ignores.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaulted;
  sigemptyset(&defaulted);
  sigaddset(&defaulted, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaulted);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t pid = 0;
  if (!redirected ||
      posix_spawnp(&pid, pointers[0], &actions, &attributes, pointers.data(), environ) != 0) {
    pid = 0;
  }
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

// Appends what waits in the pipe, and returns false if nothing does. Never blocks.
bool ReadAvailable(const UniqueFd &pipe, QByteArray &output) {
  int available = 0;
  if (ioctl(pipe.Get(), FIONREAD, &available) != 0 || available == 0) {
    return false;
  }
  const int before = output.size();
  output.resize(before + available);
  const ssize_t received =
      read(pipe.Get(), output.data() + before, static_cast<std::size_t>(available));
  output.resize(before + static_cast<int>(std::max<ssize_t>(received, 0)));
  return received > 0;
}

// Returns whether the program still runs.
bool Reap(pid_t pid, int options) {
  return TEMP_FAILURE_RETRY(waitpid(pid, nullptr, options)) == 0;
}

// Poll's time-out, rounded up so that the program has its whole time.
int MillisecondsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

}  // namespace

ChildProcess::ChildProcess(const QString &program, const QStringList &arguments) {
  Pipe input = OpenPipe();
  Pipe output = OpenPipe();
  if (!input.read.IsOpen() || !output.read.IsOpen()) {
    return;
  }
  pid_ = Spawn(program, arguments, input, output);
  if (pid_ != 0) {
    process_ = UniqueFd(pidfd_open(pid_, 0));
    input_ = std::move(input.write);
    output_ = std::move(output.read);
  }
}

ChildProcess::~ChildProcess() {
  if (pid_ == 0 || !Reap(pid_, WNOHANG)) {
    return;
  }
  kill(pid_, SIGKILL);
  if (process_.IsOpen()) {
    pollfd ended{process_.Get(), POLLIN, 0};
    TEMP_FAILURE_RETRY(poll(&ended, 1, std::chrono::milliseconds(kKillTimeout).count()));
    Reap(pid_, WNOHANG);
  } else {
    Reap(pid_, 0);
  }
}

QByteArray ChildProcess::ReadUntilEnd(std::chrono::milliseconds timeout) {
  QByteArray output;
  if (!process_.IsOpen()) {
    return output;
  }
  const Clock::time_point deadline = Clock::now() + timeout;
  std::array<pollfd, 2> awaited{{{output_.Get(), POLLIN, 0}, {process_.Get(), POLLIN, 0}}};
  auto &[written, ended] = awaited;
  while (true) {
    const int left = MillisecondsUntil(deadline);
    const int ready = poll(awaited.data(), awaited.size(), left);
    if (ready < 0 && errno == EINTR) {
      continue;
    }
    // Also without word of it: the program may have written and ended since, or the poll failed.
    if (!ReadAvailable(output_, output) || output.size() > kOutputLimit) {
      written.fd = -1;  // closed: only the end is left to wait for
    }
    if (ready <= 0 || ended.revents != 0 || left == 0) {
      break;
    }
  }
  return output;
}

}  // namespace ov
