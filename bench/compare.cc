// The library against peers and floors, on both workloads. The names of the benchmarks are the rows
// of the tables: WORKLOAD/WHAT/REFERENCE.
#include <expat.h>

#include <cstdlib>
#include <cstring>
#include <pugixml.hpp>
#include <unordered_map>

#include "peers.hh"
#include "rounds.hh"
#include "workload.hh"

namespace bench {

std::vector<std::string> segments_of(const std::string& name) {
  std::vector<std::string> segments(1);
  for (const char byte : name) {
    if (byte == '.')
      segments.emplace_back();
    else
      segments.back() += byte;
  }
  return segments;
}

bool is_number(const std::string& segment) {
  return segment.find_first_not_of("0123456789") == std::string::npos;
}

namespace {

void expect(uint32_t rc) {
  if (QMIBTREE_FAILED(rc)) std::abort();
}

// --- the hash ---

uint32_t plain_hash(const char* text) {
  uint32_t hash = 0;
  for (; *text; ++text) hash = hash * 131 + static_cast<uint32_t>(static_cast<signed char>(*text));
  return hash & 0x7fffffff;
}

template <typename Hash>
Side hashing(const Workload& work, Hash hash) {
  return {[&work, hash] {
    uint32_t sum = 0;
    for (const std::string_view name : work.names) sum += hash(name.data());
    benchmark::DoNotOptimize(sum);
  }};
}

// --- lookups and writes ---

Side finding(const Workload& work, qmibtree_inst_t* inst) {
  return {[&work, inst] {
    for (const std::string_view name : work.names) {
      const qmibtree_node* const node = qmibtree_find_node_by_name(inst, name.data());
      benchmark::DoNotOptimize(node->value.u);
    }
  }};
}

// Finds by a name as the library is given it, a C text, without making a std::string of it.
struct NameHash {
  using is_transparent = void;
  size_t operator()(std::string_view name) const { return std::hash<std::string_view>()(name); }
};
using Map = std::unordered_map<std::string, qmibtree_value_t, NameHash, std::equal_to<>>;

Side finding(const Workload& work, const Map& map) {
  return {[&work, &map] {
    for (const std::string_view name : work.names)
      benchmark::DoNotOptimize(map.find(std::string_view(name.data()))->second.u);
  }};
}

Side reading(const Workload& work, Peer& peer) {
  return {[&work, &peer] {
    for (size_t i = 0; i < work.names.size(); ++i) benchmark::DoNotOptimize(peer.read(i));
  }};
}

// Every value changes with each sweep.
Side writing(const Workload& work, Peer& peer) {
  return {[&work, &peer, which = 0]() mutable {
    which = 1 - which;
    for (size_t i = 0; i < work.parameters.size(); ++i) peer.write(i, which);
  }};
}

struct Records {
  explicit Records(const Workload& work) {
    for (const Parameter& parameter : work.parameters) flags.push_back(parameter.write_flags);
    for (int which = 0; which < 2; ++which)
      for (const Parameter& parameter : work.parameters)
        values[which].push_back(parameter.values[which].record());
  }
  std::vector<qmibtree_value_t> values[2];
  std::vector<uint32_t> flags;
};

Side writing(const Workload& work, const Records& records, qmibtree_inst_t* inst) {
  return {[&work, &records, inst, which = 0]() mutable {
            which = 1 - which;
            for (size_t i = 0; i < work.names.size(); ++i)
              expect(qmibtree_write(inst, work.names[i].data(), &records.values[which][i],
                                    records.flags[i]));
          },
          [inst] { qmibtree_notif_cleanup(inst->notif); }};
}

Tree reporting_tree(const Workload& work) {
  Tree tree = work.filled_tree();
  for (const Parameter& parameter : work.parameters)
    expect(qmibtree_set_attr(tree.get(), parameter.name.c_str(), QMIBTREE_ATTR_NOTIF_ACTIVE));
  return tree;
}

// --- documents ---

void ignore_start(void*, const XML_Char*, const XML_Char**) {}
void ignore_end(void*, const XML_Char*) {}
void ignore_text(void*, const XML_Char*, int) {}

Side parsing_only(const Workload& work) {
  return {[&work] {
    const XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetElementHandler(parser, ignore_start, ignore_end);
    XML_SetCharacterDataHandler(parser, ignore_text);
    const auto size = static_cast<int>(work.document.size());
    if (XML_Parse(parser, work.document.data(), size, XML_TRUE) != XML_STATUS_OK) std::abort();
    XML_ParserFree(parser);
  }};
}

Side loading(const Workload& work, Tree* tree) {
  return {[&work, tree] { *tree = load(work.document); }, [] {}, [tree] { tree->reset(); }};
}

Side saving(qmibtree_inst_t* inst, std::string* text) {
  return {[inst, text] { save(inst, text); }};
}

struct Text : pugi::xml_writer {
  void write(const void* bytes, size_t size) override {
    text.append(static_cast<const char*>(bytes), size);
  }
  std::string text;
};

Side saving(const pugi::xml_document& document, Text* out) {
  return {[&document, out] {
    out->text.clear();
    document.save(*out, "");  // line feeds and no indentation: as many bytes as the library's
  }};
}

Side copying(const Workload& work, std::string* out) {
  return {[&work, out] {
    std::memcpy(out->data(), work.document.data(), work.document.size());
    benchmark::ClobberMemory();
  }};
}

// --- building ---

Side building(const Workload& work, Tree* tree) {
  return {[&work, tree] { *tree = work.empty_tree(); }, [] {}, [tree] { tree->reset(); }};
}

Side inserting(const Workload& work, Map* map) {
  return {[&work, map] {
            for (const std::string& name : work.nodes) map->emplace(name, qmibtree_value_t());
          },
          [] {}, [map] { *map = {}; }};
}

// --- all of them ---

// A workload, made where a row needs it.
struct Source {
  const char* title;
  Workload (*make)();
};

template <typename Run>
void add(const Source& source, const std::string& row, Run run) {
  const auto measure = [source, run](benchmark::State& state) {
    const Workload work = source.make();
    run(state, work);
    state.counters["parameters"] = static_cast<double>(work.parameters.size());
    state.counters["nodes"] = static_cast<double>(work.nodes.size());
    state.counters["document"] = static_cast<double>(work.document.size());
  };
  benchmark::RegisterBenchmark((std::string(source.title) + "/" + row).c_str(), measure)
      ->Iterations(1)
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
}

// A row, and the same with "cold" behind what is measured.
template <typename Run>
void add_both(const Source& source, const std::string& what, const std::string& reference,
              Run run) {
  for (const auto& [kind, caches] : {std::pair("/", Caches::kOwn), {" cold/", Caches::kOthers}})
    add(source, what + kind + reference,
        [run, caches = caches](benchmark::State& state, const Workload& work) {
          run(state, work, caches);
        });
}

void add_rows(const Source& source) {
  using State = benchmark::State;
  add(source, "hash/byte loop", [](State& state, const Workload& work) {
    compare(state, work.parameters.size(), hashing(work, BKDRHash), hashing(work, plain_hash));
  });
  add(source, "noise/itself", [](State& state, const Workload& work) {
    const Tree tree = work.filled_tree(), other = work.filled_tree();
    compare(state, work.parameters.size(), finding(work, tree.get()), finding(work, other.get()));
  });
  add_both(source, "lookup", "unordered_map",
           [](State& state, const Workload& work, Caches caches) {
             const Tree tree = work.filled_tree();
             Map map;
             for (const Parameter& parameter : work.parameters)
               map[parameter.name] = parameter.values[0].record();
             compare(state, work.parameters.size(), finding(work, tree.get()), finding(work, map),
                     caches);
           });
  using Make = std::unique_ptr<Peer> (*)(const Workload&);
  static constexpr struct {
    const char* title;
    Make make;
  } kPeers[] = {
      {"libyang", [](const Workload& w) -> std::unique_ptr<Peer> { return make_libyang(w); }},
      {"libxml2", make_libxml2},
      {"pugixml", make_pugixml},
      {"SQLite", make_sqlite},
  };
  for (const auto& peer : kPeers) {
    add_both(source, "lookup", peer.title,
             [&peer](State& state, const Workload& work, Caches caches) {
               const Tree tree = work.filled_tree();
               const std::unique_ptr<Peer> other = peer.make(work);
               compare(state, work.parameters.size(), finding(work, tree.get()),
                       reading(work, *other), caches);
             });
    add_both(source, "write", peer.title,
             [&peer](State& state, const Workload& work, Caches caches) {
               const Tree tree = reporting_tree(work);
               const Records records(work);
               const std::unique_ptr<Peer> other = peer.make(work);
               compare(state, work.parameters.size(), writing(work, records, tree.get()),
                       writing(work, *other), caches);
             });
  }
  add_both(source, "load", "expat", [](State& state, const Workload& work, Caches caches) {
    Tree tree;
    compare(state, work.parameters.size(), loading(work, &tree), parsing_only(work), caches);
  });
  for (const bool validate : {false, true})
    add(source, validate ? "load/libyang validating" : "load/libyang",
        [validate](State& state, const Workload& work) {
          Tree tree;
          const std::unique_ptr<Yang> yang = make_libyang(work);
          compare(state, work.parameters.size(), loading(work, &tree),
                  {[&] { yang->parse(validate); }, [] {}, [&] { yang->discard(); }});
        });
  add_both(source, "save", "pugixml", [](State& state, const Workload& work, Caches caches) {
    const Tree tree = work.filled_tree();
    std::string text;
    Text out;
    pugi::xml_document document;
    if (!document.load_buffer(work.document.data(), work.document.size())) std::abort();
    compare(state, work.parameters.size(), saving(tree.get(), &text), saving(document, &out),
            caches);
  });
  add(source, "save/memcpy", [](State& state, const Workload& work) {
    const Tree tree = work.filled_tree();
    std::string text, copy = work.document;
    compare(state, work.parameters.size(), saving(tree.get(), &text), copying(work, &copy));
  });
  add_both(source, "build", "unordered_map", [](State& state, const Workload& work, Caches caches) {
    Tree tree;
    Map map;
    compare(state, work.nodes.size(), building(work, &tree), inserting(work, &map), caches);
  });
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  bench::keep_memory();
  for (const bench::Source& source :
       {bench::Source{"W1", bench::make_small}, bench::Source{"W2", bench::make_large}})
    bench::add_rows(source);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
