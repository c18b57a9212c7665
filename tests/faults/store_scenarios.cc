// Files and flash: what a failure leaves there, and what a call says of it.
#include <dlfcn.h>

#include <string>
#include <utility>
#include <vector>

#include "../config/config_fixture.hh"
#include "scene.hh"

namespace {

const std::string kErased(256, '\xff');  // partitions just large enough

std::string document(const std::string& value) { return text_document(value); }

uint32_t length_of(const std::string& text) { return static_cast<uint32_t>(text.size()); }

// --- a partition in words ---

// The values whose documents are in use. Those of a load are of one length, so that a header fits
// each of them, as it does in the field, where both partitions hold the same.
constexpr const char* kValues[] = {"old", "newer", "first", "spare", "facts", "basic", "<null>"};

// The length of the value that a header is for.
std::string header_in_words(const std::string& header) {
  for (const char* value : kValues)
    if (header == header_of(QMIBTREE_NVRAM_MAGIC, length_of(document(value))))
      return std::to_string(std::string(value).size());
  return header == kErased.substr(0, 8) ? "erased" : "?";
}

std::string text_in_words(const std::string& text) {
  for (const char* value : kValues) {
    const std::string whole = document(value);
    if (text == whole + kErased.substr(8 + whole.size())) return value;
  }
  return text == kErased.substr(8) ? "erased" : "?";
}

// The document's value, and what the header above it is for where that is something else.
std::string flash_in_words(const char* partition) {
  const std::string bytes = flash_read(partition);
  const std::string header = header_in_words(bytes.substr(0, 8));
  const std::string text = text_in_words(bytes.substr(8));
  const bool alike = text == "erased" ? header == text : header == std::to_string(text.size());
  return alike ? text : text + " under " + header;
}

std::string store_in_words() {
  return "main " + flash_in_words(kMain) + ", backup " + flash_in_words(kBackup);
}

void reset_store() {
  for (const char* partition : {kMain, kBackup}) flash_write(partition, kErased);
  for (const char* file : {kDefault, kTrace, kDownload}) flash_remove(file);
}

void put(const char* partition, const std::string& value) {
  flash_poke(partition, 0, image_of(document(value)));
}

// --- commands ---

std::string converted;  // the file that the conversion was run on

}  // namespace

// The store's commands without a shell, which would take most of the time. Stands before the C
// library's, which runs all others.
extern "C" int system(const char* command) {
  const std::string all = command;
  if (all == "mtd erase NVRAM")
    flash_write(kMain, kErased);
  else if (all == "mtd erase NVRAMBAK")
    flash_write(kBackup, kErased);
  else if (all == "zorem_cfg -v 0 -i /tmp/temp_config_for_download -o /tmp/out ")
    converted = flash_read(kDownload);
  else
    return reinterpret_cast<int (*)(const char*)>(dlsym(RTLD_NEXT, "system"))(command);
  return 0;
}

namespace {

// --- files ---

struct BuffFile : Scene {
  ~BuffFile() override {
    CALL(qfree)(to_end);
    CALL(qfree)(part);
  }

  void act() override {
    char text[] = "text";
    qmibtree_buff_t buff = {text, text, sizeof text, sizeof text};
    tell(CALL(qmibtree_buff_dump_to_file)(&buff, at_three.c_str(), 3));
    tell(CALL(qmibtree_buff_dump_to_file_end)(&buff, replaced.c_str()));
    to_end = CALL(qmibtree_buff_create_from_file)(source.c_str(), 2, 0);
    part = CALL(qmibtree_buff_create_from_file)(source.c_str(), 1, 2);
  }

  std::string outcome() override {
    const std::string hole = folder.read("at_three");
    tell(hole == std::string("\0\0\0text", 7) ? "text" : hole.empty() ? "-" : hole);
    tell(folder.read("replaced").empty() ? "-" : folder.read("replaced"));
    tell(read_in_words(to_end));
    tell(read_in_words(part));
    return told;
  }

  static std::string read_in_words(const qmibtree_buff_t* buff) {
    if (!buff) return "null";
    const std::string text = buff->start;
    return (text.empty() ? "-" : text) + "/" + std::to_string(buff->left);
  }

  Folder folder;
  const std::string at_three = folder.path("at_three");
  const std::string replaced = folder.write("replaced", "before");
  const std::string source = folder.write("source", "abcdef");
  qmibtree_buff_t* to_end = nullptr;
  qmibtree_buff_t* part = nullptr;
};

// A tree whose document is R.Text alone.
class HouseScene : public Scene {
 public:
  explicit HouseScene(const char* value) {
    house.record(House::kText).flags = QMIBTREE_UID_SAVE;
    house.record(House::kText).defval = value;
    inst = qmibtree_init(house.block());
  }
  ~HouseScene() override { qmibtree_destroy(inst); }
  const qmibtree_inst_t* tree() const override { return inst; }

 protected:
  House house;
  qmibtree_inst_t* inst;
};

struct DumpToFile : HouseScene {
  DumpToFile() : HouseScene("newer") {}
  void act() override {
    uint32_t length = 0;
    tell(CALL(qmibtree_xml_dump_config_to_file)(inst, nullptr, path.c_str(), 0, &length, 0));
    tell(length == document("newer").size() ? "whole" : std::to_string(length));
  }
  std::string outcome() override {
    const std::string text = folder.read("out");
    return told + ": " + (text == document("newer") ? "newer" : text);
  }
  Folder folder;
  const std::string path = folder.write("out", "before");
};

struct LoadFromFile : HouseScene {
  LoadFromFile() : HouseScene("basic") {}
  void act() override { tell(CALL(qmibtree_xml_load_from_file)(inst, path.c_str(), 0, 0, 0)); }
  std::string outcome() override { return told + ": " + read_text(inst, "R.Text"); }
  Folder folder;
  const std::string path = folder.write("in", document("newer"));
};

// --- save and load ---

struct Save : HouseScene {
  Save() : HouseScene("newer") {
    reset_store();
    put(kMain, "old");
    put(kBackup, "old");
  }
  void act() override { tell(CALL(qmibtree_save_config)(inst)); }
  std::string outcome() override { return told + ": " + store_in_words(); }
};

// A start: the trace tells its way.
class Loading : public HouseScene {
 public:
  Loading() : HouseScene("basic") {
    reset_store();
    flash_write(kDefault, document("facts"));
  }
  void act() override { tell(CALL(qmibtree_load_config)(inst)); }
  std::string outcome() override {
    return told + " " + route() + ": " + read_text(inst, "R.Text") + ", " + store_in_words();
  }

 private:
  // What was traced, in words. A line may be cut, or gone: compilers turn the tracing into calls of
  // fwrite, of so many bytes or of one text.
  static std::string route() {
    const std::vector<std::pair<const char*, const char*>> words = {
        {"\n -- check nvram success --\n", "main"},
        {"\n -- check nvram faild --\n", "no-main"},
        {"\n -- load nvram success --\n", " broken"},
        {"\n -- check nvram bak success --\n", " backup"},
        {"\n -- check nvram bak faild --\n", " no-backup"},
        {"\n -- write config and bak file --\n", " save"},
        {"\n -- load default xml config --\n", " default"}};
    std::string traced = flash_read(kTrace);
    for (const auto& [line, word] : words)
      if (const size_t at = traced.find(line); at != std::string::npos)
        traced.replace(at, std::string(line).size(), word);
    const std::set<std::string> routes = {"main save",
                                          "main broken save",
                                          "main broken default",
                                          "no-main backup save",
                                          "no-main backup default",
                                          "no-main no-backup default",
                                          "(missing)"};
    return routes.count(traced) > 0 ? traced : "(cut)";
  }
};

struct LoadMain : Loading {
  LoadMain() {
    put(kMain, "first");
    put(kBackup, "spare");
  }
};

struct LoadBackup : Loading {
  LoadBackup() { put(kBackup, "spare"); }
};

struct LoadDefault : Loading {};

struct Check : Scene {
  Check() {
    reset_store();
    put(kMain, "old");
  }
  void act() override { tell(CALL(qmibtree_check_nvram)()); }
  std::string outcome() override { return told + ": " + store_in_words(); }
};

// --- download, upgrade, clear ---

// What the conversion command was handed.
class Downloading : public Scene {
 public:
  Downloading() {
    reset_store();
    flash_write(kDefault, document("facts"));
    converted = "nothing";
  }
  void act() override { tell(CALL(qmibtree_download_config)("/tmp/out")); }
  std::string outcome() override { return told + ": " + exported() + ", " + store_in_words(); }

 private:
  static std::string exported() {
    for (const char* value : kValues)
      if (converted == document(value)) return value;
    const bool zeros = converted == std::string(document("first").size(), '\0');
    return converted.empty() ? "empty" : zeros ? "zeros" : converted;
  }
};

struct DownloadStored : Downloading {
  DownloadStored() { put(kMain, "first"); }
};

struct DownloadDefault : Downloading {};

struct Upgrade : Scene {
  Upgrade() {
    reset_store();
    put(kMain, "old");
    put(kBackup, "old");
  }
  void act() override { tell(CALL(qmibtree_upgrade_config)(path.c_str())); }
  std::string outcome() override { return told + ": " + store_in_words(); }
  Folder folder;
  const std::string path = folder.write("up", upgrade_of(document("newer")));
};

struct Clear : Scene {
  Clear() {
    reset_store();
    put(kMain, "old");
    put(kBackup, "old");
  }
  void act() override { tell(CALL(qmibtree_clear_config)()); }
  std::string outcome() override { return told + ": " + store_in_words(); }
};

}  // namespace

std::vector<Scenario> store_scenarios() {
  return {
      // Results of both writers; what the files hold; what both readers got, and how much.
      scenario<BuffFile>(
          "BuffFile", "0 0 text text cdef/4 bc/2",
          {{kMemory, {{1, "0 0 text text null bc/2"}, {1, "0 0 text text cdef/4 null"}}},
           {kNoMoreMemory, {{1, "0 0 text text null null"}, {1, "0 0 text text cdef/4 null"}}},
           {"fopen",
            {{1, "32 0 - text cdef/4 bc/2"},
             {1, "0 32 text before cdef/4 bc/2"},
             {1, "0 0 text text null bc/2"},
             {1, "0 0 text text cdef/4 null"}}},
           // A mode "w" has emptied the file by then.
           {"fseek",
            {{1, "32 0 - text cdef/4 bc/2"},
             {1, "0 32 text - cdef/4 bc/2"},
             {1, "0 0 text text null bc/2"},
             {1, "0 0 text text -/4 bc/2"},
             {1, "0 0 text text cdef/4 -/2"}}},
           {"ftell", {{1, "0 0 text text null bc/2"}}},
           {"fwrite",
            {{1, "32 0 - text cdef/4 bc/2, left open: at_three"},
             {1, "0 32 text - cdef/4 bc/2, left open: replaced"}}},
           {"fread", {{1, "0 0 text text cd/4 bc/2"}, {1, "0 0 text text cdef/4 b/2"}}},
           {"fclose",
            {{1, "32 0 text text cdef/4 bc/2"},
             {1, "0 32 text text cdef/4 bc/2"},
             {2, "0 0 text text cdef/4 bc/2"}}}}),
      scenario<DumpToFile>("DumpToFile", "0 whole: newer",
                           {{kMemory, {{1, "0 whole: before"}}},
                            {kNoMoreMemory, {{1, "0 whole: before"}}},
                            {"fopen", {{1, "32 whole: before"}}},
                            {"fseek", {{1, "32 whole: "}}},
                            {"fwrite", {{1, "32 whole: , left open: out"}}},
                            {"fclose", {{1, "32 whole: newer"}}}}),
      scenario<LoadFromFile>(
          "LoadFromFile", "0: newer",
          {{kMemory, {{1, "35: basic"}, {1, "0: basic"}, {1, "0: <null>"}}},
           {kNoMoreMemory, {{1, "35: basic"}, {1, "0: basic"}, {1, "0: <null>"}}},
           {"fopen", {{1, "35: basic"}}},
           {"fseek", {{1, "35: basic"}, {1, "32: basic"}}},
           {"ftell", {{1, "35: basic"}}},
           {"fread", {{1, "32: basic"}}},
           {"fclose", {{1, "0: newer"}}},
           {"XML_ParserCreate", {{1, "32: basic"}}},
           {kParserMemory, {{kAny, "32: basic"}, {kAny, "32: newer"}, {kAny, "0: newer"}}}}),

      // Text and header, of main and then of the backup. One failure costs one of the two, and the
      // document is whole in the other. But with no memory left both get a header for a text that
      // is
      // not there.
      scenario<Save>(
          "Save", "0: main newer, backup newer",
          {{kMemory,
            {{1, "0: main old under 5, backup newer"}, {1, "0: main newer, backup old under 5"}}},
           {kNoMoreMemory,
            {{1, "0: main old under 5, backup old under 5"},
             {1, "0: main newer, backup old under 5"}}},
           {"fopen",
            {{1, "0: main old under 5, backup newer"},
             {1, "0: main newer under 3, backup newer"},
             {1, "0: main newer, backup old under 5"},
             {1, "-1: main newer, backup newer under 3"}}},
           {"fseek",
            {{1, "0: main old under 5, backup newer"}, {1, "0: main newer, backup old under 5"}}},
           {"fwrite",
            {{1, "0: main old under 5, backup newer, left open: nvram"},
             {1, "0: main newer under 3, backup newer"},
             {1, "0: main newer, backup old under 5, left open: nvrambak"},
             {1, "0: main newer, backup newer under 3"}}},
           {"fclose", {{4, "0: main newer, backup newer"}}}}),
      // The trace, main's header and text; then the save. A value that there was no memory for is
      // missing in what is saved: from then on both partitions lack it.
      scenario<LoadMain>(
          "LoadMain", "0 main save: first, main first, backup first",
          {{kMemory,
            {{1, "0 main broken save: spare, main spare, backup spare"},
             {1, "0 main save: basic, main basic, backup basic"},
             {1, "0 main save: <null>, main <null>, backup <null>"},
             {1, "0 main save: first, main first, backup first"},
             {1, "0 main save: first, main first, backup spare"}}},
           {kNoMoreMemory,
            {{1, "0 main broken default: basic, main first, backup spare"},
             {1, "0 main save: basic, main first, backup spare"},
             {1, "0 main save: <null>, main first under 6, backup spare under 6"},
             {2, "0 main save: first, main first, backup spare"}}},
           {"fopen",
            {{1, "0 (missing): first, main first, backup first"},
             {1, "0 no-main backup save: spare, main spare, backup spare"},
             {1, "0 main broken save: spare, main spare, backup spare"},
             {2, "0 main save: first, main first, backup first"},
             {1, "0 main save: first, main first, backup spare"},
             {1, "0 main save: first, main first, backup first"}}},
           {"fseek",
            {{1, "0 main broken save: spare, main spare, backup spare"},
             {1, "0 main save: first, main first, backup first"},
             {1, "0 main save: first, main first, backup spare"}}},
           {"fread",
            {{2, "0 no-main backup save: spare, main spare, backup spare"},
             {1, "0 main broken save: spare, main spare, backup spare"}}},
           {"fwrite",
            {{kAny, "0 main save: first, main first, backup first, left open: nvram"},
             {kAny, "0 main save: first, main first, backup spare, left open: nvrambak"},
             {kAny, "0 main save: first, main first, backup first"},
             {kAny, "0 (cut): first, main first, backup first"}}},
           {"fclose", {{7, "0 main save: first, main first, backup first"}}},
           {"fflush", {{2, "0 main save: first, main first, backup first"}}},
           {"XML_ParserCreate", {{1, "0 main broken save: spare, main spare, backup spare"}}},
           {kParserMemory,
            {{kAny, "0 main broken save: spare, main spare, backup spare"},
             {kAny, "0 main save: first, main first, backup first"}}}}),
      scenario<LoadBackup>(
          "LoadBackup", "0 no-main backup save: spare, main spare, backup spare",
          {{kMemory,
            {{1, "0 no-main backup default: facts, main erased, backup spare"},
             {1, "0 no-main backup save: basic, main basic, backup basic"},
             {1, "0 no-main backup save: <null>, main <null>, backup <null>"},
             {1, "0 no-main backup save: spare, main erased under 5, backup spare"},
             {1, "0 no-main backup save: spare, main spare, backup spare"}}},
           {kNoMoreMemory,
            {{1, "0 no-main backup default: basic, main erased, backup spare"},
             {1, "0 no-main backup save: basic, main erased under 5, backup spare"},
             {1, "0 no-main backup save: <null>, main erased under 6, backup spare under 6"},
             {1, "0 no-main backup save: spare, main erased under 5, backup spare"},
             {1, "0 no-main backup save: spare, main spare, backup spare"}}},
           {"fopen",
            {{1, "0 (missing): spare, main spare, backup spare"},
             {1, "0 no-main backup save: spare, main spare, backup spare"},
             {1, "0 no-main no-backup default: facts, main erased, backup spare"},
             {1, "0 no-main backup default: facts, main erased, backup spare"},
             {1, "0 no-main backup save: spare, main erased under 5, backup spare"},
             {1, "0 no-main backup save: spare, main spare under erased, backup spare"},
             {2, "0 no-main backup save: spare, main spare, backup spare"}}},
           {"fseek",
            {{1, "0 no-main backup default: facts, main erased, backup spare"},
             {1, "0 no-main backup save: spare, main erased under 5, backup spare"},
             {1, "0 no-main backup save: spare, main spare, backup spare"}}},
           {"fread",
            {{2, "0 no-main backup save: spare, main spare, backup spare"},
             {2, "0 no-main no-backup default: facts, main erased, backup spare"},
             {1, "0 no-main backup default: facts, main erased, backup spare"}}},
           {"fwrite",
            {{kAny,
              "0 no-main backup save: spare, main erased under 5, backup spare, left open: nvram"},
             {kAny, "0 no-main backup save: spare, main spare under erased, backup spare"},
             {kAny, "0 no-main backup save: spare, main spare, backup spare, left open: nvrambak"},
             {kAny, "0 no-main backup save: spare, main spare, backup spare"},
             {kAny, "0 (cut): spare, main spare, backup spare"}}},
           {"fclose", {{8, "0 no-main backup save: spare, main spare, backup spare"}}},
           {"fflush", {{3, "0 no-main backup save: spare, main spare, backup spare"}}},
           {"XML_ParserCreate",
            {{1, "0 no-main backup default: facts, main erased, backup spare"}}},
           {kParserMemory,
            {{kAny, "0 no-main backup default: facts, main erased, backup spare"},
             {kAny, "0 no-main backup save: spare, main spare, backup spare"}}}}),
      // Nothing is saved.
      scenario<LoadDefault>(
          "LoadDefault", "0 no-main no-backup default: facts, main erased, backup erased",
          {{kMemory,
            {{2, "0 no-main no-backup default: basic, main erased, backup erased"},
             {1, "0 no-main no-backup default: <null>, main erased, backup erased"}}},
           {kNoMoreMemory,
            {{2, "0 no-main no-backup default: basic, main erased, backup erased"},
             {1, "0 no-main no-backup default: <null>, main erased, backup erased"}}},
           {"fopen",
            {{1, "0 (missing): facts, main erased, backup erased"},
             {2, "0 no-main no-backup default: facts, main erased, backup erased"},
             {1, "0 no-main no-backup default: basic, main erased, backup erased"}}},
           {"fseek", {{2, "0 no-main no-backup default: basic, main erased, backup erased"}}},
           {"ftell", {{1, "0 no-main no-backup default: basic, main erased, backup erased"}}},
           {"fread",
            {{4, "0 no-main no-backup default: facts, main erased, backup erased"},
             {1, "0 no-main no-backup default: basic, main erased, backup erased"}}},
           {"fwrite", {{kAny, "0 (cut): facts, main erased, backup erased"}}},
           {"fclose", {{4, "0 no-main no-backup default: facts, main erased, backup erased"}}},
           {"fflush", {{3, "0 no-main no-backup default: facts, main erased, backup erased"}}},
           {"XML_ParserCreate",
            {{1, "0 no-main no-backup default: basic, main erased, backup erased"}}},
           {kParserMemory,
            {{kAny, "0 no-main no-backup default: basic, main erased, backup erased"},
             {kAny, "0 no-main no-backup default: facts, main erased, backup erased"}}}}),
      scenario<Check>("Check", "1: main old, backup erased",
                      {{"fopen", {{1, "0: main old, backup erased"}}},
                       {"fread", {{2, "0: main old, backup erased"}}},
                       {"fclose", {{1, "1: main old, backup erased"}}}}),

      // A header that cannot be read sends the default file.
      scenario<DownloadStored>("DownloadStored", "0: first, main first, backup erased",
                               {{"fopen",
                                 {{1, "0: facts, main first, backup erased"},
                                  {1, "-1: nothing, main first, backup erased"},
                                  {1, "0: (missing), main first, backup erased"}}},
                                {"fseek", {{1, "-1: nothing, main first, backup erased"}}},
                                {"fread",
                                 {{2, "0: facts, main first, backup erased"},
                                  {1, "0: zeros, main first, backup erased"}}},
                                {"fwrite", {{1, "0: empty, main first, backup erased"}}},
                                {"fclose", {{3, "0: first, main first, backup erased"}}},
                                {"system", {{1, "0: nothing, main first, backup erased"}}}}),
      scenario<DownloadDefault>("DownloadDefault", "0: facts, main erased, backup erased",
                                {{"stat", {{1, "-1: nothing, main erased, backup erased"}}},
                                 {"fopen",
                                  {{1, "0: facts, main erased, backup erased"},
                                   {1, "-1: nothing, main erased, backup erased"},
                                   {1, "0: (missing), main erased, backup erased"}}},
                                 {"fseek", {{1, "-1: nothing, main erased, backup erased"}}},
                                 {"fread",
                                  {{2, "0: facts, main erased, backup erased"},
                                   {1, "0: zeros, main erased, backup erased"}}},
                                 {"fwrite", {{1, "0: empty, main erased, backup erased"}}},
                                 {"fclose", {{3, "0: facts, main erased, backup erased"}}},
                                 {"system", {{1, "0: nothing, main erased, backup erased"}}}}),
      // The backup first, then main: each from a file opened afresh. A header that was not written
      // whole
      // goes unnoticed.
      scenario<Upgrade>(
          "Upgrade", "0: main newer, backup newer",
          {{kPlainMemory, {{1, "0: main newer, backup old"}, {1, "-1: main old, backup newer"}}},
           {"open", {{1, "0: main newer, backup old"}, {1, "-1: main old, backup newer"}}},
           {"read",
            {{3, "0: main newer, backup old"},
             {1, "-1: main old, backup newer, left open: up"},
             {2, "-1: main old, backup newer"}}},
           {"system", {{2, "0: main newer, backup newer"}}},
           {"fopen",
            {{1, "0: main newer, backup erased"},
             {1, "0: main newer, backup erased under 5"},
             {1, "-1: main erased, backup newer"},
             {1, "-1: main erased under 5, backup newer"}}},
           {"fseek", {{1, "0: main newer, backup erased"}, {1, "-1: main erased, backup newer"}}},
           {"fwrite",
            {{1, "0: main newer, backup newer under erased"},
             {1, "0: main newer, backup erased"},
             {1, "0: main newer under erased, backup newer"},
             {1, "-1: main erased, backup newer"}}},
           {"fclose",
            {{1, "0: main newer, backup newer"},
             {1, "0: main newer, backup erased"},
             {1, "0: main newer, backup newer"},
             {1, "-1: main erased, backup newer"}}}}),
      scenario<Clear>(
          "Clear", "0: main erased, backup erased",
          {{"system", {{1, "0: main old, backup erased"}, {1, "-1: main erased, backup old"}}}}),
  };
}
