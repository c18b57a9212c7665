// The configuration's life on flash: load at start, save, check, download, upgrade, clear.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "config/config_internal.hh"
#include "util/bytes.hh"

namespace {

using qmib::failed;
using qmib::kBackupPartition;
using qmib::kMainPartition;
using qmib::nvram_partition;

constexpr char kDefaultFile[] = "/etc/igd/default-conf.xml";
constexpr char kTraceFile[] = "/tmp/tobixopen";
constexpr char kDownloadFile[] = "/tmp/temp_config_for_download";

// --- load ---

// Flushed: the host runs code of its own in a load, and a child that it starts there would write
// what waits in the stream a second time.
void trace_to(std::FILE* trace, const char* text) {
  if (!trace) return;
  (void)std::fputs(text, trace);
  (void)std::fflush(trace);
}

bool load_image(qmibtree_inst_t* inst, const nvram_partition& partition, uint32_t length) {
  return !failed(
      qmibtree_xml_load_from_file(inst, partition.device, qmib::kNvramTextOffset, length, 0));
}

bool load_backup(qmibtree_inst_t* inst, std::FILE* trace) {
  uint32_t length = 0;
  if (qmib::qmibtree_nvram_read_header(kBackupPartition, &length) != 0) {
    trace_to(trace, "\n -- check nvram bak faild --\n");
    return false;
  }
  trace_to(trace, "\n -- check nvram bak success --\n");
  return load_image(inst, kBackupPartition, length);
}

bool load_partitions(qmibtree_inst_t* inst, std::FILE* trace) {
  uint32_t length = 0;
  if (qmib::qmibtree_nvram_read_header(kMainPartition, &length) != 0) {
    trace_to(trace, "\n -- check nvram faild --\n");
    return load_backup(inst, trace);
  }
  trace_to(trace, "\n -- check nvram success --\n");
  if (load_image(inst, kMainPartition, length)) return true;
  // Deliberate: "success" is traced where the main text failed to load, and the backup is read with
  // the main header's length. Scripts that read the trace go by these words; kept by
  // lifecycle_test.cc.
  trace_to(trace, "\n -- load nvram success --\n");
  return load_image(inst, kBackupPartition, length);
}

// --- save ---

// Text first, header after it. The dump's result does not count: the header carries the length of
// what was, or should have been, written; `*length` stays from before where nothing was counted.
int save_to(qmibtree_inst_t* inst, const nvram_partition& partition, uint32_t* length) {
  (void)qmibtree_xml_dump_config_to_file(inst, nullptr, partition.device, qmib::kNvramTextOffset,
                                         length, 0);
  return qmib::qmibtree_nvram_write_header(partition, *length);
}

// --- download ---

// The stored configuration's text, where it is.
struct text_source {
  const char* path;
  long offset;
  uint32_t length;
};

bool find_source(text_source* source) {
  *source = {kMainPartition.device, qmib::kNvramTextOffset, 0};
  if (qmib::qmibtree_nvram_read_header(kMainPartition, &source->length) == 0) return true;
  struct stat status;
  if (stat(kDefaultFile, &status) != 0 || status.st_size > off_t{QMIBTREE_NVRAM_MAX}) return false;
  *source = {kDefaultFile, 0, static_cast<uint32_t>(status.st_size)};
  return true;
}

void print_position(int line) {
  std::printf("\n ------------ FILE=%s LINE=%d -----------\n", "qmibtree_cfg", line);
}

// Writes the download's temporary file; its stream's address, 0 when it could not be opened.
uintptr_t write_download_file(const unsigned char* text, uint32_t length) {
  const qmib::file stream(std::fopen(kDownloadFile, "w"));
  if (!stream) return 0;
  const auto handle = reinterpret_cast<uintptr_t>(stream.get());
  print_position(543);
  (void)std::fwrite(text, length, 1, stream.get());
  return handle;
}

int run_conversion(const char* out_path) {
  char command[128];
  const int length = std::snprintf(command, sizeof command, "zorem_cfg -v 0 -i %s -o %s ",
                                   kDownloadFile, out_path);
  // A path that is cut would be some other file's; only the blank behind it may be missing.
  if (static_cast<size_t>(length) > sizeof command) return -1;
  (void)!std::system(command);
  return 0;
}

// --- upgrade ---

constexpr unsigned char kUpgradeMagic[8] = {'z', 'o', 'r', 'e', 'm', 'c', 'f', 'g'};
constexpr size_t kUpgradeHeaderSize = 16;
constexpr size_t kUpgradeLengthOffset = 12;
constexpr size_t kUpgradeTrailerSize = 4;

bool read_exactly(int fd, unsigned char* bytes, size_t size) {
  while (size > 0) {
    const ssize_t count = read(fd, bytes, size);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes += count;
    size -= static_cast<size_t>(count);
  }
  return true;
}

// The payload's length in an upgrade file's header; -1 when it is none.
int32_t payload_length(const unsigned char* header) {
  if (std::memcmp(header, kUpgradeMagic, sizeof kUpgradeMagic) != 0) return -1;
  // Deliberate: little-endian, where the partition's header is big-endian. Files in the field are.
  const auto length = static_cast<int32_t>(qmib::load_le32(header + kUpgradeLengthOffset));
  return length < static_cast<int32_t>(QMIBTREE_NVRAM_MAX) ? length : -1;
}

// The payload, when it and the zero trailer behind it are all there; else null.
qmib::plain_bytes read_payload(int fd, size_t length) {
  qmib::plain_bytes payload(static_cast<unsigned char*>(std::malloc(length > 0 ? length : 1)));
  if (!payload || !read_exactly(fd, payload.get(), length)) return nullptr;
  constexpr unsigned char kZeros[kUpgradeTrailerSize] = {};
  unsigned char trailer[kUpgradeTrailerSize];
  if (!read_exactly(fd, trailer, sizeof trailer)) return nullptr;
  return std::memcmp(trailer, kZeros, sizeof trailer) == 0 ? std::move(payload) : nullptr;
}

enum class on_short_header { kCloses, kStaysOpen };

int upgrade_partition(const char* path, const nvram_partition& partition, on_short_header then) {
  qmib::descriptor source(open(path, O_RDWR));
  if (!source) return -1;
  unsigned char header[kUpgradeHeaderSize];
  if (!read_exactly(source.get(), header, sizeof header)) {
    if (then == on_short_header::kStaysOpen) source.release();
    return -1;
  }
  const int32_t length = payload_length(header);
  if (length < 0) return -1;
  const qmib::plain_bytes payload = read_payload(source.get(), static_cast<size_t>(length));
  if (!payload) return -1;
  source.reset();  // before the erase command runs
  return qmib::qmibtree_nvram_replace_image(partition, payload.get(),
                                            static_cast<uint32_t>(length));
}

}  // namespace

int qmibtree_load_config(qmibtree_inst_t* inst) {
  const qmib::file trace(std::fopen(kTraceFile, "w"));
  if (load_partitions(inst, trace.get())) {
    trace_to(trace.get(), "\n -- write config and bak file --\n");
    (void)qmibtree_save_config(inst);
  } else {
    trace_to(trace.get(), "\n -- load default xml config --\n");
    (void)qmibtree_xml_load_from_file(inst, kDefaultFile, 0, 0, 0);
  }
  return 0;  // a trace that cannot be written is no reason to tell the host that its load failed
}

int qmibtree_save_config(qmibtree_inst_t* inst) {
  uint32_t length = 0;
  (void)save_to(inst, kMainPartition, &length);
  return save_to(inst, kBackupPartition, &length);
}

int qmibtree_check_nvram() {
  uint32_t length = 0;
  return qmib::qmibtree_nvram_read_header(kMainPartition, &length) == 0 && length > 0;
}

int qmibtree_download_config(const char* out_path) {
  static unsigned char text[QMIBTREE_NVRAM_MAX];
  text_source source;
  if (!out_path || !find_source(&source)) return -1;
  qmib::file stream(std::fopen(source.path, "r"));
  if (!stream || std::fseek(stream.get(), source.offset, SEEK_SET) != 0) return -1;
  std::memset(text, 0, sizeof text);
  (void)!std::fread(text, source.length, 1, stream.get());
  print_position(532);
  if (std::ferror(stream.get())) return -1;
  print_position(539);
  stream.reset();
  const uintptr_t handle = write_download_file(text, source.length);
  std::printf("\n ------------ FILE=%s LINE=%d fp=%x-----------\n", "qmibtree_cfg", 547,
              static_cast<unsigned>(handle));
  return run_conversion(out_path);
}

int qmibtree_upgrade_config(const char* path) {
  if (!path) return -1;
  (void)upgrade_partition(path, kBackupPartition, on_short_header::kCloses);
  // Deliberate: a file too short for its header stays open after the second pass, so that a host
  // that counts its descriptors can tell a torn transfer from a refused file. Kept by
  // nvram_test.cc.
  return upgrade_partition(path, kMainPartition, on_short_header::kStaysOpen);
}

int qmibtree_clear_config() {
  (void)qmib::qmibtree_nvram_erase(kMainPartition);
  return qmib::qmibtree_nvram_erase(kBackupPartition);
}
