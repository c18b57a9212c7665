// What stands beside the tree: components and processes, log, texts, interfaces, threads.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../config/config_fixture.hh"
#include "scene.hh"

namespace {

constexpr uint32_t kId = 5;

// --- components ---

int actions;  // that were run

void act_on_component() { ++actions; }

struct Registry : Scene {
  ~Registry() override { CALL(qmibtree_comp_register)(kId, 0, nullptr, nullptr, nullptr, nullptr); }

  void act() override {
    const qmibtree_comps_t hooks = {act_on_component, act_on_component, act_on_component,
                                    act_on_component, act_on_component};
    actions = 0;
    CALL(qmibtree_comps_register)(&hooks);
    CALL(qmibtree_comps_init)();
    CALL(qmibtree_comps_start)();
    CALL(qmibtree_comps_stop)();
    CALL(qmibtree_comps_restart)();
    CALL(qmibtree_comps_mark_action)();
    CALL(qmibtree_comp_register)
    (kId, 0, act_on_component, act_on_component, act_on_component, act_on_component);
    CALL(qmibtree_comp_init)(kId);
    CALL(qmibtree_comp_start)(kId);
    CALL(qmibtree_comp_stop)(kId);
    CALL(qmibtree_comp_restart)(kId);
    tell(actions);
    CALL(qmibtree_comp_mark)(kId, 3);
    CALL(qmibtree_comp_unmark)(kId, 1);
    tell(CALL(qmibtree_comp_chk_mark)(kId, 2));
    CALL(qmibtree_comp_unmark_all)();
    tell(CALL(qmibtree_comp_chk_mark)(kId, 2));
  }
  std::string outcome() override { return told; }
};

// --- processes ---

// A child that waits to be killed.
class Child {
 public:
  Child() : pid(fork()) {
    while (pid == 0) pause();
  }
  ~Child() {
    if (alive_) killed();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // "killed", or "running" when nobody had killed it by now. It is gone afterwards.
  const char* killed() {
    kill(pid, SIGTERM);
    int status = 0;
    waitpid(pid, &status, 0);
    alive_ = false;
    return WTERMSIG(status) == SIGKILL ? "killed" : "running";
  }

  const pid_t pid;

 private:
  bool alive_ = true;
};

struct Kill : Scene {
  void act() override {
    CALL(qmibtree_comp_kill_pid)(kId, first.pid);
    CALL(qmibtree_comp_kill_pidfile)(kId, file.c_str());
  }
  std::string outcome() override {
    tell(first.killed());
    tell(second.killed());
    return told;
  }
  Child first;
  Child second;
  Folder folder;
  const std::string file = folder.write("pid", std::to_string(second.pid));
};

struct Run : Scene {
  void act() override {
    tell(CALL(qmibtree_comp_system)(kId, "exit %d", 3) == 3 << 8 ? "ran" : "failed");
    const int32_t child = CALL(qmibtree_comp_fork_and_execl)(kId, "/bin/sh", "-c", "exit 4",
                                                             static_cast<char*>(nullptr));
    int status = -1;
    if (child > 0) waitpid(child, &status, 0);
    tell(child < 0 ? child : WEXITSTATUS(status));
    char result[] = "before";
    tell(CALL(run_pipeResult)(result, sizeof result, "echo line"));
    tell(result);
  }
  std::string outcome() override { return told; }
};

// --- log and texts: what cannot be flushed stays for the next time ---

void log_list(const char* format, ...) {
  va_list args;
  va_start(args, format);
  CALL(qdbg_logging_nochk_valist)(QDBG_FEAT_SYS, QDBG_LVL_ERR, format, args);
  va_end(args);
}

struct Log : Scene {
  ~Log() override {
    CALL(qdbg_init)(QDBG_FEAT_MAX);
    CALL(qdbg_global_infop)->console = 0;
  }
  void act() override {
    CALL(qdbg_init)(QDBG_FEAT_MAX);
    CALL(qdbg_set_level)(QDBG_FEAT_SYS, QDBG_LVL_DEBUG);
    tell(CALL(qdbg_get_level)(QDBG_FEAT_SYS));
    CALL(qdbg_logging_nochk)(QDBG_FEAT_SYS, QDBG_LVL_ERR, "%d", 1);
    log_list("%d", 2);
  }
  std::string outcome() override { return told + printed; }
};

struct Texts : Scene {
  void act() override {
    uint8_t mac[6];
    char host[20];
    CALL(qstrmac2digit)("00:01:02:03:04:05", mac);
    CALL(qprintf_buffer)(mac, sizeof mac);
    CALL(qstrurl2host)("http://host/file", host, sizeof host - 1);
    tell(host);
    tell(CALL(qstring2hex)("ff"));
    tell(CALL(qstring2dec)("12"));
    tell(CALL(qstring2digit)("0x10"));
  }
  std::string outcome() override { return told + printed; }
};

struct Hashes : Scene {
  void act() override {
    tell(CALL(SDBMHash)("a"));
    tell(CALL(RSHash)("a"));
    tell(CALL(JSHash)("a"));
    tell(CALL(PJWHash)("a"));
    tell(CALL(ELFHash)("a"));
    tell(CALL(DJBHash)("a"));
    tell(CALL(APHash)("a"));
  }
  std::string outcome() override { return told; }
};

// --- interfaces ---

bool loopback_is_up() {
  ifaddrs* interfaces = nullptr;
  (void)getifaddrs(&interfaces);
  bool up = false;
  for (const ifaddrs* each = interfaces; each; each = each->ifa_next)
    if (strcmp(each->ifa_name, "lo") == 0 && (each->ifa_flags & IFF_UP)) up = true;
  freeifaddrs(interfaces);
  return up;
}

Scenario on_loopback(Scenario scenario) {
  const bool counted = access("/sys/class/net/lo/statistics/tx_bytes", R_OK) == 0;
  if (!loopback_is_up() || !counted) scenario.lacking = "a loopback interface that is up, and /sys";
  return scenario;
}

// Something to count, on the loopback interface.
void send_something() {
  const int channel = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in to = {};
  to.sin_family = AF_INET;
  to.sin_port = htons(9);
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  (void)sendto(channel, "x", 1, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  close(channel);
}

struct Counters : Scene {
  Counters() { send_something(); }
  void act() override {
    for (const auto count : {CALL(ifs_get_stats_txpkts), CALL(ifs_get_stats_rxpkts),
                             CALL(ifs_get_stats_txbytes), CALL(ifs_get_stats_rxbytes)})
      tell(count("lo") > 0 ? "some" : "0");
  }
  std::string outcome() override { return told; }
};

struct Requests : Scene {
  void act() override {
    tell(CALL(ifs_get_status)("lo", status));
    tell(status);
    tell(CALL(ifs_get_hwaddr)("lo", address));
    tell(address);
  }
  std::string outcome() override { return told; }
  char status[10] = "before";
  char address[18] = "before";
};

// --- threads ---

// A block that the joiner frees.
void* answer(void*) { return std::calloc(1, 8); }

struct Threads : Scene {
  void act() override {
    pthread_t thread = pthread_self();  // which cannot be joined
    const int error = CALL(qthread_create)(&thread, answer, nullptr);
    tell(error == EAGAIN ? "EAGAIN" : std::to_string(error));
    if (error == 0) tell(CALL(qthread_join)(thread));
  }
  std::string outcome() override { return told; }
};

}  // namespace

std::vector<Scenario> host_scenarios() {
  const std::string dump = "host 255 12 16\nbuffer (6 bytes):\n00010203 0405";
  return {
      scenario<Registry>("Registry", "9 1 0", {}),
      scenario<Kill>("Kill", "killed killed",
                     {{"fopen", {{1, "killed running"}}}, {"fclose", {{1, "killed killed"}}}}),
      scenario<Run>("Run", "ran 4 0 line",
                    {{"system", {{1, "failed 4 0 line"}}},
                     {"fork", {{1, "ran -1 0 line"}}},
                     {"popen", {{1, "ran 4 -1 before"}}},
                     {"pclose", {{1, "ran 4 0 line"}}}}),
      scenario<Log>("Log", "7\n[SYS - ERR]: 1\n[SYS - ERR]: 2",
                    {{"fflush", {{2, "7\n[SYS - ERR]: 1\n[SYS - ERR]: 2"}}}}),
      scenario<Texts>("Texts", dump, {{"fflush", {{1, dump}}}}),
      scenario<Hashes>("Hashes", "97 97 787808333 97 97 177670 97", {}),
      on_loopback(scenario<Counters>("Counters", "some some some some",
                                     {{"fopen",
                                       {{1, "0 some some some"},
                                        {1, "some 0 some some"},
                                        {1, "some some 0 some"},
                                        {1, "some some some 0"}}},
                                      {"fread", {{kAny, "some some some some"}}},
                                      {"fclose", {{4, "some some some some"}}}})),
      on_loopback(scenario<Requests>(
          "Requests", "0 Up 0 00:00:00:00:00:00",
          {{"socket", {{1, "-1 Disabled 0 00:00:00:00:00:00"}, {1, "0 Up -1 before"}}},
           {"ioctl", {{1, "-1 Disabled 0 00:00:00:00:00:00"}, {1, "0 Up -1 before"}}}})),
      scenario<Threads>("Threads", "0 0", {{"pthread_create", {{1, "EAGAIN"}}}}),
  };
}
