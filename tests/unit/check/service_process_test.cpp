#include "check/service_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "base/socket_address.h"
#include "base/unique_fd.h"
#include "event/service_socket.h"
#include "support/support.h"

namespace ov {
namespace {

// --- The process -------------------------------------------------------------------------------

// A shell with these words as its command line, which reads its input until the object goes.
class Shell {
 public:
  explicit Shell(std::vector<std::string> words) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const UniqueFd input(ends[0]);
    open_ = UniqueFd(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.Get(), STDIN_FILENO);
    std::vector<char *> arguments;
    for (std::string &word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    EXPECT_EQ(posix_spawn(&id_, "/bin/sh", &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    const std::string commandLine = "/proc/" + std::to_string(id_) + "/cmdline";
    EXPECT_TRUE(Eventually([&] { return ReadFile(commandLine).rfind(words[0], 0) == 0; }));
  }
  Shell(const Shell &) = delete;
  Shell &operator=(const Shell &) = delete;
  ~Shell() {
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
  }

  pid_t Id() const { return id_; }

 private:
  UniqueFd open_;
  pid_t id_ = -1;
};

struct CommandRow : Row {
  std::vector<std::string> words;
  bool isService;
};

class Command : public testing::TestWithParam<CommandRow> {};

TEST_P(Command, IsTold) {
  const Shell shell(GetParam().words);
  const std::optional<ServiceProcess> service = FindService();
  EXPECT_EQ(service.has_value(), GetParam().isService);
  EXPECT_TRUE(!service || service->id == shell.Id());
}

const CommandRow kCommands[] = {{"NameWithItsOptionIsTheService", {"ov-event-logger", "-s"}, true},
                                {"PathIsTheServiceToo", {"/a/b/ov-event-logger", "-s"}, true},
                                {"NameAloneIsNot", {"ov-event-logger"}, false},
                                {"OtherOptionIsNot", {"ov-event-logger", "-x"}, false},
                                {"MoreWordsAreNot", {"ov-event-logger", "-s", "x"}, false},
                                {"OtherNameIsNot", {"x-ov-event-logger", "-s"}, false},
                                {"LongerNameIsNot", {"ov-event-logger2", "-s"}, false}};

INSTANTIATE_TEST_SUITE_P(Rows, Command, testing::ValuesIn(kCommands), OutcomeOf());

TEST(FindServiceTest, ReadsWhatTheProcessIs) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit lower{123, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &lower);
  setenv("OV_MARK", "a=b", 1);
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const Shell shell({"ov-event-logger", "-s"});
  setrlimit(RLIMIT_NOFILE, &before);
  unsetenv("OV_MARK");
  const std::optional<ServiceProcess> service = FindService();
  ASSERT_TRUE(service);
  EXPECT_EQ(service->user, geteuid());
  EXPECT_EQ(service->group, getegid());
  std::vector<gid_t> groups(static_cast<std::size_t>(getgroups(0, nullptr)));
  getgroups(static_cast<int>(groups.size()), groups.data());
  EXPECT_THAT(service->groups, testing::UnorderedElementsAreArray(groups));
  EXPECT_EQ(service->descriptors, 123);
  EXPECT_LT(std::chrono::abs(service->startTime - now), std::chrono::milliseconds(500));
  ASSERT_TRUE(service->environment);
  EXPECT_TRUE(service->environment->contains("OV_MARK=a=b"));
  EXPECT_TRUE(service->environment->contains("TZ=UTC"));
}

TEST(BecomeUserTest, OwnUserNeedsNoChange) {
  ServiceProcess service{};
  service.user = geteuid();
  service.group = getegid() + 1;  // is not looked at
  EXPECT_TRUE(BecomeUserOf(service));
  EXPECT_NE(getegid(), service.group);
}

// --- The environment ---------------------------------------------------------------------------

TEST(AdoptEnvironmentTest, TakesFiveVariablesAndLeavesTheOthers) {
  setenv("LANG", "mine", 1);
  setenv("OV_MARK", "mine", 1);
  ServiceProcess service{};
  service.environment = QList<QByteArray>{"LC_ALL=1",   "XTZ=2",    "TZ=a=b",   "TZX=3",
                                          "PATH=/x:/y", "LC_TIME=", "OV_MARK=4"};
  AdoptEnvironment(service);
  const std::string environment = std::string(std::getenv("LC_ALL")) + "|" + std::getenv("TZ") +
                                  "|" + std::getenv("PATH") + "|" + std::getenv("LC_TIME") + "|" +
                                  std::getenv("OV_MARK");
  EXPECT_EQ(environment, "1|a=b|/x:/y||mine");
  EXPECT_EQ(std::getenv("LANG"), nullptr);
  EXPECT_EQ(std::getenv("TZX"), nullptr);
  setenv("LANG", "de", 1);
  service.environment = QList<QByteArray>{"LANG=fr"};
  AdoptEnvironment(service);
  EXPECT_STREQ(std::getenv("LANG"), "fr");
  EXPECT_EQ(std::getenv("PATH"), nullptr);
  unsetenv("LANG");
  unsetenv("OV_MARK");
}

TEST(AdoptEnvironmentTest, LeavesEverythingIfItMayNotBeSeen) {
  AdoptEnvironment(ServiceProcess{});
  EXPECT_STREQ(std::getenv("TZ"), "UTC");
}

// --- The socket --------------------------------------------------------------------------------

TEST(HasListenerTest, ASocketThatListensIsOne) {
  EXPECT_FALSE(HasListener());
  {
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = ServiceSocketAddress();
    ASSERT_EQ(bind(socket.Get(), AsSocketAddress(address), sizeof(address)), 0);
    EXPECT_FALSE(HasListener());
    ASSERT_EQ(listen(socket.Get(), 1), 0);
    EXPECT_TRUE(HasListener());
  }
  EXPECT_FALSE(HasListener());
}

TEST(HasListenerTest, SocketAtAnotherPathIsNone) {
  const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = ServiceSocketAddress();
  std::strcat(address.sun_path, "2");
  ASSERT_EQ(bind(socket.Get(), AsSocketAddress(address), sizeof(address)), 0);
  ASSERT_EQ(listen(socket.Get(), 1), 0);
  EXPECT_FALSE(HasListener());
}

}  // namespace
}  // namespace ov
