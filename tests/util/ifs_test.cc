// Network interfaces: counters, state and address, of stand-ins and of the kernel's own.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "qmibtree.h"

namespace {

using counter_fn = uint32_t (*)(const char* name);

struct counter {
  const char* file;
  counter_fn get;
};

constexpr counter kCounters[] = {
    {"tx_packets", ifs_get_stats_txpkts},
    {"rx_packets", ifs_get_stats_rxpkts},
    {"tx_bytes", ifs_get_stats_txbytes},
    {"rx_bytes", ifs_get_stats_rxbytes},
};

bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1; }

// --- stand-ins for the kernel: while one exists, this program's calls end there ---

// Files to be opened by name.
class kernel_files {
 public:
  kernel_files() { current_ = this; }
  ~kernel_files() { current_ = nullptr; }
  kernel_files(const kernel_files&) = delete;
  kernel_files& operator=(const kernel_files&) = delete;

  static kernel_files* current() { return current_; }

  void add(const std::string& path, const std::string& content) { contents_[path] = content; }

  FILE* open(const char* path, const char* mode) {
    opened_.emplace_back(path);
    modes_.emplace_back(mode);
    const auto found = contents_.find(path);
    if (found == contents_.end()) {
      errno = ENOENT;
      return nullptr;
    }
    FILE* const file = std::tmpfile();
    std::fputs(found->second.c_str(), file);
    std::rewind(file);
    fds_.push_back(fileno(file));
    return file;
  }

  const std::vector<std::string>& opened() const { return opened_; }
  const std::vector<std::string>& modes() const { return modes_; }
  const std::vector<int>& fds() const { return fds_; }

 private:
  static inline kernel_files* current_ = nullptr;
  std::map<std::string, std::string> contents_;
  std::vector<std::string> opened_;
  std::vector<std::string> modes_;
  std::vector<int> fds_;
};

// An interface that answers requests.
class kernel_interface {
 public:
  struct request {
    unsigned long code;
    std::string name;
    int family;
    int fd;
    int socket_domain;
    int socket_type;
  };

  kernel_interface() { current_ = this; }
  ~kernel_interface() { current_ = nullptr; }
  kernel_interface(const kernel_interface&) = delete;
  kernel_interface& operator=(const kernel_interface&) = delete;

  static kernel_interface* current() { return current_; }

  int ask(int fd, unsigned long code, ifreq* record) {
    const auto* const name = record->ifr_name;
    requests_.push_back({code, std::string(name, strnlen(name, IFNAMSIZ)),
                         record->ifr_addr.sa_family, fd, socket_option(fd, SO_DOMAIN),
                         socket_option(fd, SO_TYPE)});
    if (code == SIOCGIFFLAGS) {
      record->ifr_flags = static_cast<short>(flags);
    } else {
      std::memcpy(record->ifr_hwaddr.sa_data, address, sizeof address);
    }
    return result;
  }

  const std::vector<request>& requests() const { return requests_; }

  int result = 0;
  int flags = 0;
  uint8_t address[8] = {0x00, 0x1a, 0x2b, 0x9c, 0xde, 0xff, 0x77, 0x77};

 private:
  static int socket_option(int fd, int option) {
    int answer = -1;
    socklen_t size = sizeof answer;
    getsockopt(fd, SOL_SOCKET, option, &answer, &size);
    return answer;
  }

  static inline kernel_interface* current_ = nullptr;
  std::vector<request> requests_;
};

int open_flags(const char* mode) {
  if (mode[0] == 'r') return std::strchr(mode, '+') ? O_RDWR : O_RDONLY;
  const int access = std::strchr(mode, '+') ? O_RDWR : O_WRONLY;
  return access | O_CREAT | (mode[0] == 'a' ? O_APPEND : O_TRUNC);
}

}  // namespace

extern "C" {

FILE* fopen(const char* path, const char* mode) {
  if (kernel_files* const files = kernel_files::current()) return files->open(path, mode);
  const int fd = open(path, open_flags(mode), 0666);
  return fd < 0 ? nullptr : fdopen(fd, mode);
}

#ifdef __GLIBC__
int ioctl(int fd, unsigned long code, ...) noexcept {
#else
int ioctl(int fd, int code, ...) {
#endif
  va_list arguments;
  va_start(arguments, code);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (kernel_interface* const interface = kernel_interface::current()) {
    return interface->ask(fd, static_cast<unsigned long>(code), static_cast<ifreq*>(argument));
  }
  return static_cast<int>(syscall(SYS_ioctl, fd, code, argument));
}

}  // extern "C"

namespace {

// --- counters ---

std::string counter_path(const std::string& name, const std::string& file) {
  return "/sys/class/net/" + name + "/statistics/" + file;
}

TEST(IfsCounter, IsTheNumberInItsOwnFile) {
  kernel_files files;
  for (const counter& each : kCounters) {
    files.add(counter_path("wan0", each.file), std::to_string(1000 + (&each - kCounters)) + "\n");
  }
  EXPECT_EQ(ifs_get_stats_txpkts("wan0"), 1000u);
  EXPECT_EQ(ifs_get_stats_rxpkts("wan0"), 1001u);
  EXPECT_EQ(ifs_get_stats_txbytes("wan0"), 1002u);
  EXPECT_EQ(ifs_get_stats_rxbytes("wan0"), 1003u);
}

TEST(IfsCounter, OpensItsFileOnceForReadingAndClosesIt) {
  for (const counter& each : kCounters) {
    kernel_files files;
    files.add(counter_path("wan0", each.file), "1\n");
    each.get("wan0");
    ASSERT_EQ(files.opened(), std::vector<std::string>{counter_path("wan0", each.file)});
    EXPECT_EQ(files.modes()[0][0], 'r');
    EXPECT_EQ(files.modes()[0].find('+'), std::string::npos);
    EXPECT_FALSE(is_open(files.fds()[0])) << each.file;
  }
}

// What a file with this content counts.
uint32_t counted(const char* content) {
  kernel_files files;
  files.add(counter_path("wan0", "rx_bytes"), content);
  const uint32_t value = ifs_get_stats_rxbytes("wan0");
  EXPECT_FALSE(is_open(files.fds().at(0))) << content;
  return value;
}

TEST(IfsCounter, IsTakenModuloTwoToThe32) {
  EXPECT_EQ(counted("4294967295\n"), 4294967295u);
  EXPECT_EQ(counted("4294967296\n"), 0u);
  EXPECT_EQ(counted("5000000000\n"), 705032704u);
  EXPECT_EQ(counted("18446744073709551615\n"), 4294967295u);
}

TEST(IfsCounter, IsZeroWithoutANumberInTheFile) {
  for (const char* content : {"", "\n", "none\n", "x1\n"}) EXPECT_EQ(counted(content), 0u);
}

TEST(IfsCounter, EndsWithItsDigits) {
  EXPECT_EQ(counted("12"), 12u);
  EXPECT_EQ(counted("12 34\n"), 12u);
  EXPECT_EQ(counted("12ab\n"), 12u);
}

TEST(IfsCounter, WhiteSpaceBeforeTheDigitsIsSkipped) {
  EXPECT_EQ(counted("  12\n"), 12u);
  EXPECT_EQ(counted("\n\t12\n"), 12u);
}

TEST(IfsCounter, IsZeroWithoutTheFile) {
  for (const counter& each : kCounters) {
    const kernel_files files;
    EXPECT_EQ(each.get("wan0"), 0u);
    EXPECT_EQ(files.opened().size(), 1u);
  }
}

TEST(IfsCounter, PathIsCutAt49Characters) {
  for (const std::string name : {"abcdefghijkl", "abcdefghijklm", "abcdefghijklmno"}) {
    for (const counter& each : kCounters) {
      const kernel_files files;
      each.get(name.c_str());
      EXPECT_EQ(files.opened().at(0), counter_path(name, each.file).substr(0, 49));
    }
  }
}

TEST(IfsCounter, AVeryLongNameIsCutWithThePath) {
  const kernel_files files;
  EXPECT_EQ(ifs_get_stats_rxpkts(std::string(1000, 'n').c_str()), 0u);
  EXPECT_EQ(files.opened().at(0), "/sys/class/net/" + std::string(34, 'n'));
}

TEST(IfsCounter, AFileUnderTheCutPathIsTaken) {
  kernel_files files;
  files.add("/sys/class/net/abcdefghijklm/statistics/tx_packet", "7\n");
  EXPECT_EQ(ifs_get_stats_txpkts("abcdefghijklm"), 7u);
}

TEST(IfsCounter, NameIsNoFormat) {
  const kernel_files files;
  ifs_get_stats_rxbytes("%n%s%d");
  EXPECT_EQ(files.opened().at(0), counter_path("%n%s%d", "rx_bytes"));
}

// --- state ---

// The status word of `name`; `result` gets what the call answers.
std::string status_of(const char* name, int32_t* result) {
  char status[10];
  std::memset(status, '#', sizeof status);
  *result = ifs_get_status(name, status);
  EXPECT_EQ(status[9], '\0');
  return status;
}

// The same as one text, "0 Up".
std::string told_status(const char* name) {
  int32_t result = 0;
  const std::string status = status_of(name, &result);
  return std::to_string(result) + " " + status;
}

std::string status_of_flags(int flags) {
  kernel_interface interface;
  interface.flags = flags;
  return told_status("wan0");
}

TEST(IfsStatus, IsUpWhenUpOrRunning) {
  EXPECT_EQ(status_of_flags(IFF_UP | IFF_RUNNING), "0 Up");
  EXPECT_EQ(status_of_flags(IFF_UP), "0 Up");
  EXPECT_EQ(status_of_flags(IFF_RUNNING), "0 Up");
}

TEST(IfsStatus, IsDisabledWithNeither) {
  EXPECT_EQ(status_of_flags(0), "0 Disabled");
  EXPECT_EQ(status_of_flags(0xffff & ~(IFF_UP | IFF_RUNNING)), "0 Disabled");
}

TEST(IfsStatus, OtherFlagsDoNotMatter) {
  for (int flags = 0; flags < 0x200; ++flags) {
    const bool up = (flags & (IFF_UP | IFF_RUNNING)) != 0;
    EXPECT_EQ(status_of_flags(flags), up ? "0 Up" : "0 Disabled") << flags;
  }
}

TEST(IfsStatus, NoCarrierIsUpAndNeverNoLink) {
  EXPECT_EQ(status_of_flags(IFF_UP | IFF_BROADCAST | IFF_MULTICAST), "0 Up");
}

TEST(IfsStatus, AsksOnceForTheFlags) {
  const kernel_interface interface;
  told_status("wan0");
  ASSERT_EQ(interface.requests().size(), 1u);
  EXPECT_EQ(interface.requests()[0].code, static_cast<unsigned long>(SIOCGIFFLAGS));
  EXPECT_EQ(interface.requests()[0].name, "wan0");
}

TEST(IfsStatus, AFailedRequestIsDisabledWhateverTheFlags) {
  for (const int result : {-1, -5}) {
    kernel_interface interface;
    interface.result = result;
    interface.flags = IFF_UP | IFF_RUNNING;
    EXPECT_EQ(told_status("wan0"), std::to_string(result) + " Disabled");
  }
}

// --- hardware address ---

// What the call answers and leaves in the output, which held '#' throughout before it.
std::string told_address(const char* name) {
  char address[19];
  std::memset(address, '#', sizeof address);
  const int32_t result = ifs_get_hwaddr(name, address);
  EXPECT_EQ(address[18], '#');
  return std::to_string(result) + " " + std::string(address, strnlen(address, 18));
}

const std::string kUntouched(18, '#');

TEST(IfsAddress, IsSixPairsOfLowerCaseDigits) {
  const kernel_interface interface;
  EXPECT_EQ(told_address("wan0"), "0 00:1a:2b:9c:de:ff");
}

TEST(IfsAddress, AsksOnceForTheAddress) {
  const kernel_interface interface;
  told_address("wan0");
  ASSERT_EQ(interface.requests().size(), 1u);
  EXPECT_EQ(interface.requests()[0].code, static_cast<unsigned long>(SIOCGIFHWADDR));
  EXPECT_EQ(interface.requests()[0].name, "wan0");
}

TEST(IfsAddress, AFailedRequestLeavesTheOutput) {
  for (const int result : {-1, -5}) {
    kernel_interface interface;
    interface.result = result;
    EXPECT_EQ(told_address("wan0"), std::to_string(result) + " " + kUntouched);
  }
}

// --- what both requests do alike ---

class IfsRequest : public testing::TestWithParam<std::string (*)(const char* name)> {};

INSTANTIATE_TEST_SUITE_P(, IfsRequest, testing::Values(told_status, told_address),
                         [](const auto& tested) {
                           return tested.index == 0 ? "Status" : "Address";
                         });

TEST_P(IfsRequest, GoesThroughADatagramSocket) {
  const kernel_interface interface;
  GetParam()("wan0");
  EXPECT_EQ(interface.requests().at(0).socket_domain, AF_INET);
  EXPECT_EQ(interface.requests().at(0).socket_type, SOCK_DGRAM);
}

TEST_P(IfsRequest, CarriesTheAddressFamily) {
  const kernel_interface interface;
  GetParam()("wan0");
  EXPECT_EQ(interface.requests().at(0).family, AF_INET);
}

TEST_P(IfsRequest, NameIsCutAt15Characters) {
  for (const std::string name : {"abcdefghijklmn", "abcdefghijklmno", "abcdefghijklmnop",
                                 "abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz"}) {
    const kernel_interface interface;
    GetParam()(name.c_str());
    EXPECT_EQ(interface.requests().at(0).name, name.substr(0, 15));
  }
}

TEST_P(IfsRequest, ClosesItsSocket) {
  for (const int result : {0, -1}) {
    kernel_interface interface;
    interface.result = result;
    GetParam()("wan0");
    EXPECT_FALSE(is_open(interface.requests().at(0).fd)) << result;
  }
}

TEST_P(IfsRequest, FailsWithoutASocket) {
  const kernel_interface interface;
  rlimit files = {};
  getrlimit(RLIMIT_NOFILE, &files);
  const rlimit none = {0, files.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const std::string told = GetParam()("wan0");
  setrlimit(RLIMIT_NOFILE, &files);
  EXPECT_EQ(told, GetParam() == told_status ? "-1 Disabled" : "-1 " + kUntouched);
  EXPECT_TRUE(interface.requests().empty());
}

TEST_P(IfsRequest, FailsForAnInterfaceThatIsNotThere) {
  for (const char* name : {"", "no-such-if", "no/such/interface/at/all"}) {
    EXPECT_EQ(GetParam()(name), GetParam() == told_status ? "-1 Disabled" : "-1 " + kUntouched);
  }
}

// --- the kernel's own interfaces ---

// The counter as the kernel tells it.
unsigned long long kernel_counter(const char* name, const char* file) {
  unsigned long long value = 0;
  if (FILE* const stream = std::fopen(counter_path(name, file).c_str(), "r")) {
    if (std::fscanf(stream, "%llu", &value) != 1) value = 0;
    std::fclose(stream);
  }
  return value;
}

// The interface's flags, or -1.
int kernel_flags(const char* name) {
  ifreq record = {};
  std::strcpy(record.ifr_name, name);
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  const int failed = ioctl(fd, SIOCGIFFLAGS, &record);
  close(fd);
  return failed ? -1 : static_cast<unsigned short>(record.ifr_flags);
}

bool set_up(const char* name) {
  ifreq record = {};
  std::strcpy(record.ifr_name, name);
  record.ifr_flags = static_cast<short>(kernel_flags(name) | IFF_UP);
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  const int failed = ioctl(fd, SIOCSIFFLAGS, &record);
  close(fd);
  return !failed;
}

// Sends `count` datagrams of `size` bytes over the loopback interface, from a socket to itself
// so that nothing comes in answer.
bool send_over_loopback(int count, size_t size) {
  sockaddr_in self = {};
  self.sin_family = AF_INET;
  self.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const address = reinterpret_cast<sockaddr*>(&self);
  socklen_t address_size = sizeof self;
  const std::vector<char> data(size, 'd');
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  bool sent = bind(fd, address, sizeof self) == 0 && getsockname(fd, address, &address_size) == 0;
  for (int n = 0; sent && n < count; ++n) {
    sent = sendto(fd, data.data(), size, 0, address, sizeof self) == static_cast<ssize_t>(size);
  }
  close(fd);
  return sent;
}

TEST(IfsLoopback, StatusFollowsTheFlags) {
  const int flags = kernel_flags("lo");
  if (flags < 0) GTEST_SKIP() << "no interface lo";
  EXPECT_EQ(told_status("lo"), (flags & (IFF_UP | IFF_RUNNING)) ? "0 Up" : "0 Disabled");
}

TEST(IfsLoopback, AddressIsAllZero) {
  if (kernel_flags("lo") < 0) GTEST_SKIP() << "no interface lo";
  EXPECT_EQ(told_address("lo"), "0 00:00:00:00:00:00");
}

// Others use the interface too, so each counter lies between two looks at its file.
TEST(IfsLoopback, CountersAreTheKernelsOwn) {
  if (access(counter_path("lo", "tx_bytes").c_str(), R_OK) != 0) GTEST_SKIP() << "no /sys for lo";
  send_over_loopback(3, 100);
  for (const counter& each : kCounters) {
    const unsigned long long before = kernel_counter("lo", each.file);
    const uint32_t value = each.get("lo");
    const unsigned long long after = kernel_counter("lo", each.file);
    EXPECT_LE(value - static_cast<uint32_t>(before), after - before) << each.file;
  }
}

TEST(IfsLoopback, AnInterfaceThatIsNotThereCountsNothing) {
  for (const counter& each : kCounters) EXPECT_EQ(each.get("no-such-if"), 0u);
}

// --- interfaces made for the test, in a network of their own ---

// Thrown where this machine does not offer what a test asks for.
struct unavailable {
  std::string what;
};

void need(bool available, const std::string& what) {
  if (!available) throw unavailable{what + ": " + std::strerror(errno)};
}

constexpr char kUnavailable[] = "unavailable: ";

// Gives this process a network and mounts of its own; an ordinary user becomes their root.
void enter_a_new_network() {
  constexpr int kSpaces = CLONE_NEWNET | CLONE_NEWNS;
  if (unshare(kSpaces) == 0) return;
  const std::string map = "0 " + std::to_string(geteuid()) + " 1";
  need(unshare(kSpaces | CLONE_NEWUSER) == 0, "network namespace");
  const int fd = open("/proc/self/uid_map", O_WRONLY);
  need(write(fd, map.data(), map.size()) == static_cast<ssize_t>(map.size()), "user namespace");
  close(fd);
}

// Runs `body` in a child process that has a network of its own; what it returns, or
// kUnavailable and what the machine does not offer.
std::string in_a_new_network(const std::function<std::string()>& body) {
  int ends[2];
  if (pipe(ends) != 0) return std::strerror(errno);
  const pid_t child = fork();
  if (child == 0) {
    std::string told;
    try {
      enter_a_new_network();
      told = body();
    } catch (const unavailable& missing) {
      told = kUnavailable + missing.what;
    }
    const bool written = write(ends[1], told.data(), told.size()) >= 0;
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  pollfd answer = {ends[0], POLLIN, 0};
  if (poll(&answer, 1, 60000) != 1) kill(child, SIGKILL);
  char told[512] = {};
  const bool answered = read(ends[0], told, sizeof told - 1) > 0;
  close(ends[0]);
  int state = 0;
  waitpid(child, &state, 0);
  return answered && state == 0 ? told : "(child failed)";
}

// Compares what `body` tells, or skips the test.
void expect_in_a_new_network(const char* expected, const std::function<std::string()>& body) {
  const std::string told = in_a_new_network(body);
  if (told.rfind(kUnavailable, 0) == 0) GTEST_SKIP() << told;
  EXPECT_EQ(told, expected);
}

constexpr char kAddress[] = "02:00:5e:a0:bc:fe";

// Makes an interface of the first of these kinds that the kernel offers.
void add_interface(const std::string& name, const std::vector<std::string>& kinds) {
  for (const std::string& kind : kinds) {
    const std::string command = "PATH=$PATH:/usr/sbin:/sbin ip link add " + name + " address " +
                                kAddress + " type " + kind + " 2>/dev/null";
    if (std::system(command.c_str()) == 0) return;
  }
  throw unavailable{"ip link add type " + kinds.back()};
}

TEST(IfsNetwork, ALoopbackThatIsDownIsDisabledUntilItIsSetUp) {
  expect_in_a_new_network("0 Disabled, 0 Up", [] {
    const std::string down = told_status("lo");
    need(set_up("lo"), "setting lo up");
    return down + ", " + told_status("lo");
  });
}

TEST(IfsNetwork, AnInterfaceIsDisabledUntilItIsSetUp) {
  expect_in_a_new_network("0 Disabled, 0 Up", [] {
    add_interface("wan0", {"dummy", "veth"});
    const std::string down = told_status("wan0");
    need(set_up("wan0"), "setting wan0 up");
    return down + ", " + told_status("wan0");
  });
}

// The other end of the pair stays down; the kernel takes a moment to notice.
TEST(IfsNetwork, AnInterfaceWithoutACarrierIsUp) {
  expect_in_a_new_network("0 Up", [] {
    add_interface("wan0", {"veth"});
    need(set_up("wan0"), "setting wan0 up");
    for (int n = 0; n < 500 && (kernel_flags("wan0") & IFF_RUNNING); ++n) poll(nullptr, 0, 10);
    need((kernel_flags("wan0") & (IFF_UP | IFF_RUNNING)) == IFF_UP, "losing the carrier");
    return told_status("wan0");
  });
}

TEST(IfsNetwork, AddressIsTheInterfacesOwn) {
  expect_in_a_new_network("0 02:00:5e:a0:bc:fe", [] {
    add_interface("wan0", {"dummy", "veth"});
    return told_address("wan0");
  });
}

TEST(IfsNetwork, ALongerNameFindsTheInterfaceOfItsFirst15Characters) {
  expect_in_a_new_network("0 02:00:5e:a0:bc:fe, 0 Disabled", [] {
    const std::string name = "abcdefghijklmno";
    add_interface(name, {"dummy", "veth"});
    return told_address("abcdefghijklmnopqrst") + ", " + told_status("abcdefghijklmnop");
  });
}

// Nobody else uses this loopback interface, so its counters are exact.
TEST(IfsNetwork, CountersAreThoseOfWhatWasSent) {
  expect_in_a_new_network("5 5 same same", [] {
    need(mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    need(mount("sysfs", "/sys", "sysfs", 0, nullptr) == 0, "the network's own /sys");
    need(set_up("lo"), "setting lo up");
    const uint32_t tx_packets = ifs_get_stats_txpkts("lo");
    const uint32_t rx_packets = ifs_get_stats_rxpkts("lo");
    need(send_over_loopback(5, 1000), "sending over lo");
    const auto same = [](uint32_t value, const char* file) {
      return value >= 5000 && value == kernel_counter("lo", file) ? " same" : " different";
    };
    return std::to_string(ifs_get_stats_txpkts("lo") - tx_packets) + " " +
           std::to_string(ifs_get_stats_rxpkts("lo") - rx_packets) +
           same(ifs_get_stats_txbytes("lo"), "tx_bytes") +
           same(ifs_get_stats_rxbytes("lo"), "rx_bytes");
  });
}

}  // namespace
