// The verbs for partition images and upgrade files.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "commands.hh"
#include "image.hh"
#include "line_diff.hh"
#include "store.hh"
#include "text.hh"

namespace mibctl {

namespace {

using Json = nlohmann::ordered_json;

struct Arguments {
  std::string input, other, output;
  uint64_t size = kPartition;
  size_t top = 10;
  bool force = false;
};

void print(const Json& record) {
  std::printf("%s\n", record.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

std::string bytes(uint64_t count) { return counted(count, "byte"); }

std::string hex(uint64_t number, int digits) {
  char text[20];
  std::snprintf(text, sizeof text, "%0*llx", digits, static_cast<unsigned long long>(number));
  return text;
}

// --- files ---

bool same_file(const std::string& one, const std::string& other) {
  struct stat a, b;
  return stat(one.c_str(), &a) == 0 && stat(other.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
         a.st_ino == b.st_ino;
}

void write_output(const Arguments& arguments, std::string_view content) {
  if (arguments.output.empty() || arguments.output == "-") {
    std::fwrite(content.data(), 1, content.size(), stdout);
    return;
  }
  write_file(arguments.output, content);
}

void keep_input(const Arguments& arguments) {
  if (same_file(arguments.input == "-" ? "/dev/stdin" : arguments.input, arguments.output))
    throw Error(Status::usage, arguments.output, "is the input", "name another file to write");
}

// A document that a gateway could load.
std::string read_document(const Arguments& arguments) {
  const std::string document = read_file(arguments.input, kMaxDocumentFile);
  const std::string problem = arguments.force ? "" : document_problem(document);
  if (!problem.empty()) throw refused(arguments.input, "does not parse", problem);
  return document;
}

// --- info, verify ---

// One line of what is printed, and the same for a program.
struct Fact {
  const char* key;
  std::string text;
  Json json;
};
using Facts = std::vector<Fact>;

void print_facts(const std::string& prefix, const Facts& facts) {
  for (const Fact& fact : facts)
    std::printf("%s%s: %s\n", prefix.c_str(), fact.key, fact.text.c_str());
}

Json json_of(const Facts& facts) {
  Json record;
  for (const Fact& fact : facts) record[fact.key] = fact.json;
  return record;
}

Fact text_fact(const char* key, const std::string& text) { return {key, text, text}; }
Fact size_fact(const char* key, uint64_t size) { return {key, bytes(size), size}; }

// What the dump has behind its text.
Fact rest_of(const Copy& copy) {
  const size_t used = kImageHeader + text_in(copy.dump, copy.image.length).size();
  const std::string_view rest = std::string_view(copy.dump).substr(used);
  const bool erased = rest.find_first_not_of('\xff') == std::string_view::npos;
  const std::string state = rest.empty() ? "" : erased ? ", erased" : ", not erased";
  return {"behind", bytes(rest.size()) + state, rest.size()};
}

Facts header_facts(const Copy& copy) {
  Facts facts = {text_fact("file", copy.path)};
  if (copy.readable) facts.push_back(size_fact("size", copy.image.size));
  if (copy.image.size >= 4) facts.push_back(text_fact("magic", hex(copy.image.magic, 8)));
  if (copy.image.size >= kImageHeader) facts.push_back(size_fact("length", copy.image.length));
  if (copy.image.valid()) facts.push_back(rest_of(copy));
  return facts;
}

// With the header's fields or without: info or verify.
Facts facts_of(const Copy& copy, bool header) {
  Facts facts = header ? header_facts(copy) : Facts();
  facts.push_back(text_fact("state", state_of(copy)));
  return facts;
}

Pair readable_pair(const std::string& folder) {
  Pair pair = read_pair(folder);
  if (!pair.main.readable && !pair.backup.readable)
    throw Error(Status::storage, folder, "has no image that can be read",
                "nvram " + pair.main.problem + "; nvrambak " + pair.backup.problem);
  return pair;
}

Json record_of(const Copy& copy, bool header) {
  Json record = json_of(facts_of(copy, header));
  record["valid"] = copy.problem.empty();
  return record;
}

void print_pair(const Pair& pair, bool header) {
  print_facts("main ", facts_of(pair.main, header));
  print_facts("backup ", facts_of(pair.backup, header));
  std::printf("start: %s\n", pair.route().c_str());
}

void print_pair_json(const Pair& pair, bool header) {
  const Copy* const loaded = pair.loaded();
  const Json name = !loaded ? Json() : Json(loaded == &pair.main ? "main" : "backup");
  print({{"main", record_of(pair.main, header)},
         {"backup", record_of(pair.backup, header)},
         {"loads", name},
         {"start", pair.route()}});
}

// Whether a start would load one of them.
bool explain_pair(const std::string& folder, bool header, bool json) {
  const Pair pair = readable_pair(folder);
  if (json)
    print_pair_json(pair, header);
  else
    print_pair(pair, header);
  return pair.loaded() != nullptr;
}

bool explain_image(const std::string& path, bool header, bool json) {
  const Copy copy = read_copy(path);
  const bool loads = copy.problem.empty();
  if (json) {
    print(record_of(copy, header));
  } else {
    print_facts("", facts_of(copy, header));
    std::printf("start: %s\n", loads ? "would load it" : "would not load it");
  }
  return loads;
}

bool explain(const std::string& path, bool header, bool json) {
  return is_folder(path) ? explain_pair(path, header, json) : explain_image(path, header, json);
}

// --- pack, unpack ---

void pack(const Arguments& arguments) {
  keep_input(arguments);
  std::string image = make_image(arguments.input, read_document(arguments));
  if (image.size() > arguments.size)
    throw refused(arguments.input, "does not fit into " + bytes(arguments.size),
                  "the image has " + bytes(image.size()));
  // cppcheck-suppress invalidFunctionArg // a char may be negative
  image.resize(arguments.size, '\xff');
  write_output(arguments, image);
}

// A text whose header does not tell where it ends: no document has the byte that ends this one.
std::string_view rescued_text(std::string_view dump) {
  const std::string_view text = text_in(dump, 0);
  return text.substr(0, text.find_first_of(std::string_view("\0\xff", 2)));
}

void unpack(const Arguments& arguments) {
  keep_input(arguments);
  const Copy copy = read_copy(arguments.input);
  if (copy.problem.empty()) return write_output(arguments, copy.text);
  if (!copy.image.valid() && !arguments.force)
    throw Error(Status::storage, arguments.input, "holds no configuration", copy.problem);
  if (!arguments.force)
    throw refused(arguments.input, "does not load; --force writes what there is", copy.problem);
  const bool measured = copy.image.valid() && copy.image.length > 0;
  write_output(arguments, measured ? copy.text : rescued_text(copy.dump));
}

// --- diff ---

// One of the two that are compared.
struct Side {
  std::vector<std::pair<const char*, Copy>> files;
  bool document = false;  // not an image
  std::string text;
  std::string problem;  // why there is no text
};

Side read_folder(const std::string& path) {
  Pair pair = readable_pair(path);
  Side side;
  if (const Copy* const loaded = pair.loaded())
    side.text = loaded->text;
  else
    side.problem = "no start would load from " + path;
  side.files.emplace_back("nvram", std::move(pair.main));
  side.files.emplace_back("nvrambak", std::move(pair.backup));
  return side;
}

Side read_side(const std::string& path) {
  if (is_folder(path)) return read_folder(path);
  Copy copy = read_copy(path);
  Side side;
  side.document = looks_like_document(copy.dump);
  side.text = side.document ? copy.dump : copy.text;
  if (!side.document && !copy.image.valid()) side.problem = path + ": " + copy.image.problem;
  side.files.emplace_back("bytes", std::move(copy));
  return side;
}

std::string compared_bytes(std::string_view a, std::string_view b) {
  if (a == b) return "same, " + bytes(a.size());
  const size_t common = std::min(a.size(), b.size());
  const auto first =
      std::mismatch(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(common), b.begin());
  const auto at = static_cast<size_t>(first.first - a.begin());
  size_t different = 0;
  for (size_t i = at; i < common; ++i) different += a[i] != b[i];
  std::string text;
  if (different > 0)
    text = bytes(different) + " changed, the first at offset " + grouped(at) + " (0x" + hex(at, 1) +
           ")";
  if (a.size() == b.size()) return text;
  return text + (text.empty() ? "" : "; ") + grouped(a.size()) + " and " + bytes(b.size());
}

// What is said of two files byte for byte.
Fact compare_files(const char* name, const Copy& a, const Copy& b) {
  for (const Copy* const copy : {&a, &b})
    if (!copy->readable) return text_fact(name, copy->path + " " + copy->problem);
  return text_fact(name, compared_bytes(a.dump, b.dump));
}

bool same_kind(const Side& a, const Side& b) {
  return a.files.size() == b.files.size() && a.document == b.document;
}

bool same_bytes(const Side& a, const Side& b) {
  return std::equal(a.files.begin(), a.files.end(), b.files.begin(), b.files.end(),
                    [](const auto& one, const auto& other) {
                      return one.second.readable == other.second.readable &&
                             one.second.dump == other.second.dump;
                    });
}

Facts compare_bytes(const Side& a, const Side& b) {
  if (!same_kind(a, b)) return {text_fact("bytes", "not compared: files of two kinds")};
  Facts facts;
  for (size_t i = 0; i < a.files.size(); ++i)
    facts.push_back(compare_files(a.files[i].first, a.files[i].second, b.files[i].second));
  return facts;
}

Json json_of(const std::vector<LineEdit>& edits) {
  Json lines = Json::array();
  for (const LineEdit& edit : edits)
    lines.push_back({{"change", edit.added ? "added" : "removed"},
                     {"line", edit.line},
                     {"text", std::string(edit.text)}});
  return lines;
}

std::string summary_of(const std::vector<LineEdit>& edits) {
  if (edits.empty()) return "same";
  const auto added = static_cast<size_t>(
      std::count_if(edits.begin(), edits.end(), [](const LineEdit& edit) { return edit.added; }));
  return counted(edits.size() - added, "line") + " removed, " + grouped(added) + " added";
}

bool diff(const Arguments& arguments, bool json) {
  const Side a = read_side(arguments.input);
  const Side b = read_side(arguments.other);
  Facts facts = compare_bytes(a, b);
  const std::string& problem = a.problem.empty() ? b.problem : a.problem;
  std::vector<LineEdit> edits;
  if (problem.empty()) edits = diff_lines(a.text, b.text);
  const bool same = same_kind(a, b) ? same_bytes(a, b) : problem.empty() && a.text == b.text;
  facts.push_back(
      text_fact("document", problem.empty() ? summary_of(edits) : "not compared: " + problem));
  if (json) {
    Json record = json_of(facts);
    record["same"] = same;
    record["lines"] = json_of(edits);
    print(record);
  } else {
    print_facts("", facts);
    for (const LineEdit& edit : edits)
      std::printf("%c%zu: %s\n", edit.added ? '+' : '-', edit.line,
                  quoted_value(edit.text).c_str());
  }
  return same;
}

// --- size ---

struct Subtree {
  std::string name;
  size_t size;
};

// The biggest elements of a document, no more than `most` of them.
std::vector<Subtree> biggest(const std::string& path, const std::string& text, size_t most) {
  std::vector<Subtree> found;
  const auto bigger = [](const Subtree& a, const Subtree& b) { return a.size > b.size; };
  const std::string problem = walk_document(text, [&](const Element& element) {
    if (!element.object) return;
    const Subtree subtree{element.path, element.end - element.begin};
    found.insert(std::upper_bound(found.begin(), found.end(), subtree, bigger), subtree);
    if (found.size() > most) found.pop_back();
  });
  if (!problem.empty()) throw refused(path, "does not parse", problem);
  return found;
}

std::string stored_text(const std::string& path) {
  if (is_folder(path)) return open_flash(path)->load();
  const Copy copy = read_copy(path);
  if (looks_like_document(copy.dump)) return copy.dump;
  if (!copy.image.valid())
    throw Error(Status::storage, path, "holds no configuration", copy.problem);
  return copy.text;
}

void size(const Arguments& arguments, bool json) {
  const std::string text = stored_text(arguments.input);
  const std::vector<Subtree> subtrees = biggest(arguments.input, text, arguments.top);
  const int64_t left = static_cast<int64_t>(kMaxDocument) - static_cast<int64_t>(text.size());
  if (json) {
    Json list = Json::array();
    for (const Subtree& subtree : subtrees)
      list.push_back({{"name", subtree.name}, {"bytes", subtree.size}});
    return print({{"text", text.size()}, {"left", left}, {"subtrees", list}});
  }
  std::printf("text: %s\n", bytes(text.size()).c_str());
  if (left < 0)
    std::printf("left: none, %s too long\n", bytes(static_cast<uint64_t>(-left)).c_str());
  else
    std::printf("left: %s of %s\n", grouped(static_cast<uint64_t>(left)).c_str(),
                bytes(kMaxDocument).c_str());
  for (const Subtree& subtree : subtrees)
    std::printf("%s: %s\n", quoted_value(subtree.name).c_str(), bytes(subtree.size).c_str());
}

// --- upgrade files ---

void make_upgrade_file(const Arguments& arguments) {
  keep_input(arguments);
  const std::string document = read_document(arguments);
  if (!arguments.force) check_length(arguments.input, document);
  write_output(arguments, make_upgrade(document));
}

bool check_upgrade_file(const Arguments& arguments, bool json) {
  const std::string payload = parse_upgrade(arguments.input, read_file(arguments.input, kMaxDump));
  const std::string problem = document_problem(payload);
  const Facts facts = {size_fact("payload", payload.size()),
                       text_fact("document", problem.empty() ? "valid" : problem)};
  if (json)
    print(json_of(facts));
  else
    print_facts("", facts);
  return problem.empty();
}

// --- the command line ---

CLI::App* verb(CLI::App* family, const char* name, const char* help, const char* example) {
  CLI::App* const command = family->add_subcommand(name, help);
  command->footer(std::string("Example:\n  mibctl image ") + example);
  return command;
}

using Shared = std::shared_ptr<Arguments>;

void add_input(CLI::App* command, const Shared& arguments, const char* name, const char* help) {
  command->add_option(name, arguments->input, help)->required();
}

CLI::Option* add_output(CLI::App* command, const Shared& arguments, const char* type) {
  return command->add_option("-o,--output", arguments->output, "Where to; - for standard output")
      ->type_name(type);
}

void add_force(CLI::App* command, const Shared& arguments, const char* help) {
  command->add_flag("--force", arguments->force, help);
}

void add_looks(CLI::App* image, Options& options, const Shared& arguments) {
  const char* const what = "An image, or a folder with \"nvram\" and \"nvrambak\"";
  CLI::App* command =
      verb(image, "info", "Explain an image, or a pair and what a start would load of it",
           "info nvram.bin");
  add_input(command, arguments, "FILE|DIR", what);
  command->callback([&options, arguments] { explain(arguments->input, true, options.json); });

  command =
      verb(image, "verify", "Tell whether a start would load it; status 1 when not", "verify dump");
  add_input(command, arguments, "FILE|DIR", what);
  command->callback([&options, arguments] {
    if (!explain(arguments->input, false, options.json)) options.status = Status::refused;
  });

  const char* const any = "An image, a folder with a pair of them, or a document";
  command = verb(image, "diff",
                 "Compare byte for byte, and the documents line by line; status 1 when different",
                 "diff before.bin after.bin");
  add_input(command, arguments, "A", any);
  command->add_option("B", arguments->other, "Another")->required();
  command->callback([&options, arguments] {
    if (!diff(*arguments, options.json)) options.status = Status::refused;
  });

  command = verb(image, "size", "Print the text's size, what is left and the biggest subtrees",
                 "size nvram.bin --top 3");
  add_input(command, arguments, "FILE|DIR|DOCUMENT", any);
  command->add_option("--top", arguments->top, "How many subtrees, 10 without it")
      ->type_name("N")
      ->check(CLI::Range(0, 1000));
  command->callback([&options, arguments] { size(*arguments, options.json); });
}

void add_packing(CLI::App* image, const Shared& arguments) {
  CLI::App* command =
      verb(image, "pack", "Make an image of a document", "pack conf.xml -o nvram.bin");
  add_input(command, arguments, "DOCUMENT", "The document; - for standard input");
  add_output(command, arguments, "IMAGE")->required();
  command
      ->add_option("--size", arguments->size,
                   "Bytes of the image, K and M understood, 65536 without it;\nbehind the text it "
                   "is erased flash")
      ->type_name("N")
      ->transform(CLI::AsSizeValue(false).description(""))
      ->check(CLI::Range(uint64_t{kImageHeader}, kMaxDump).description(""));
  add_force(command, arguments, "Even when it does not parse");
  command->callback([arguments] { pack(*arguments); });

  command = verb(image, "unpack", "Write the document of an image", "unpack nvram.bin -o conf.xml");
  add_input(command, arguments, "IMAGE", "The image; - for standard input");
  add_output(command, arguments, "DOCUMENT");
  add_force(command, arguments, "Whatever text there is, cut or damaged");
  command->callback([arguments] { unpack(*arguments); });
}

void add_upgrade_files(CLI::App* image, Options& options, const Shared& arguments) {
  CLI::App* const family =
      verb(image, "upgrade-file", "Make and check upgrade files", "upgrade-file check conf.zcf");
  family->require_subcommand(1);

  CLI::App* command = verb(family, "make", "Make an upgrade file of a document",
                           "upgrade-file make conf.xml -o conf.zcf");
  add_input(command, arguments, "DOCUMENT", "The document; - for standard input");
  add_output(command, arguments, "FILE")->required();
  add_force(command, arguments, "Even when it does not parse or no gateway would take it");
  command->callback([arguments] { make_upgrade_file(*arguments); });

  command = verb(family, "check", "Tell whether a gateway would take it; status 1 when not",
                 "upgrade-file check conf.zcf");
  add_input(command, arguments, "FILE", "The upgrade file");
  command->callback([&options, arguments] {
    if (!check_upgrade_file(*arguments, options.json)) options.status = Status::refused;
  });
}

}  // namespace

void add_image_commands(CLI::App& app, Options& options) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const image = app.add_subcommand("image", "Partition images and upgrade files");
  image->group("Images");
  image->footer("Example:\n  mibctl image info nvram.bin");
  image->require_subcommand(1);
  add_looks(image, options, arguments);
  add_packing(image, arguments);
  add_upgrade_files(image, options, arguments);
}

}  // namespace mibctl
