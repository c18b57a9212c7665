#include <libyang/libyang.h>

#include <cstdio>
#include <cstdlib>
#include <map>

#include "peers.hh"

namespace bench {
namespace {

std::string between(int64_t low, int64_t high) {
  return " \"" + std::to_string(low) + ".." + std::to_string(high) + "\"; }";
}

std::string as_long_as(const qmibtree_uidinfo_t& record) {
  const auto max = static_cast<int32_t>(record.max_len);
  return max > 0 ? " { length" + between(0, max) : ";";
}

// The type with the bounds that the library checks.
std::string type_of(const qmibtree_uidinfo_t& record) {
  switch (record.type) {
    case QMIBTREE_TYPE_INT:
      return "int32 { range" + between(record.int_min, record.int_max);
    case QMIBTREE_TYPE_UINT:
      return "uint32 { range" + between(record.uint_min, record.uint_max);
    case QMIBTREE_TYPE_DATETIME:
      return "uint32;";
    case QMIBTREE_TYPE_BASE64:
      return "binary" + as_long_as(record);
    case QMIBTREE_TYPE_BOOL:
      return "boolean;";
    default:
      return "string" + as_long_as(record);
  }
}

// The model in its own language: containers, lists with a key for tables, and leaves.
struct Outline {
  std::map<std::string, Outline> children;
  bool is_list = false;
  const qmibtree_uidinfo_t* record = nullptr;  // of a leaf

  std::string text(const std::string& name) const {
    if (record) return "leaf " + name + " { type " + type_of(*record) + " }\n";
    std::string text = (is_list ? "list " : "container ") + name + " {\n";
    if (is_list) text += "key id; leaf id { type uint32; }\n";
    for (const auto& [segment, child] : children) text += child.text(segment);
    return text + "}\n";
  }
};

class Libyang : public Yang {
 public:
  explicit Libyang(const Workload& work) : work_(work) {
    expect(ly_ctx_new(nullptr, 0, &context_));
    expect(lys_parse_mem(context_, module_of(work).c_str(), LYS_IN_YANG, nullptr));
    for (const Parameter& parameter : work.parameters) paths_.push_back(path_of(parameter.name));
    for (const size_t i : work.in_tree_order()) {
      lyd_node* made = nullptr;
      expect(lyd_new_path(tree_, context_, paths_[i].c_str(),
                          work.parameters[i].values[0].text.c_str(), 0, tree_ ? nullptr : &made));
      if (!tree_) tree_ = made;
    }
    char* text = nullptr;
    expect(lyd_print_mem(&text, tree_, LYD_XML, LYD_PRINT_SHRINK));
    document_ = text;
    std::free(text);
  }
  ~Libyang() override {
    lyd_free_all(tree_);
    ly_ctx_destroy(context_);
  }
  Libyang(const Libyang&) = delete;
  Libyang& operator=(const Libyang&) = delete;

  std::string title() const override { return "libyang"; }
  size_t read(size_t i) override { return static_cast<size_t>(lyd_get_value(find(i))[0]); }
  void write(size_t i, int which) override {
    const LY_ERR result = lyd_change_term(find(i), work_.parameters[i].values[which].text.c_str());
    if (result != LY_ENOT) expect(result);  // LY_ENOT: it had that value
  }
  void parse(bool validate) override {
    const uint32_t options = validate ? 0 : LYD_PARSE_ONLY;
    const uint32_t checks = validate ? LYD_VALIDATE_PRESENT : 0;
    expect(lyd_parse_data_mem(context_, document_.c_str(), LYD_XML, options, checks, &parsed_));
  }
  void discard() override { lyd_free_all(parsed_); }

 private:
  static void expect(LY_ERR result) {
    if (result == LY_SUCCESS) return;
    std::fprintf(stderr, "libyang: error %d\n", result);
    std::abort();
  }

  static std::string module_of(const Workload& work) {
    const Tree tree = work.empty_tree();
    Outline top;
    for (const Parameter& parameter : work.parameters) {
      Outline* node = &top;
      for (const std::string& segment : segments_of(parameter.name)) {
        if (is_number(segment))
          node->is_list = true;
        else
          node = &node->children[segment];
      }
      node->record = qmibtree_find_node_by_name(tree.get(), parameter.name.c_str())->uidinfo;
    }
    std::string text = "module bench { namespace \"urn:bench\"; prefix b;\n";
    for (const auto& [segment, child] : top.children) text += child.text(segment);
    return text + "}\n";
  }

  static std::string path_of(const std::string& name) {
    std::string path;
    for (const std::string& segment : segments_of(name)) {
      if (is_number(segment))
        path += "[id='" + segment + "']";
      else
        path += (path.empty() ? "/bench:" : "/") + segment;
    }
    return path;
  }

  lyd_node* find(size_t i) const {
    lyd_node* found = nullptr;
    expect(lyd_find_path(tree_, paths_[i].c_str(), 0, &found));
    return found;
  }

  const Workload& work_;
  ly_ctx* context_ = nullptr;
  lyd_node* tree_ = nullptr;
  lyd_node* parsed_ = nullptr;
  std::string document_;
  std::vector<std::string> paths_;
};

}  // namespace

std::unique_ptr<Yang> make_libyang(const Workload& work) { return std::make_unique<Libyang>(work); }

}  // namespace bench
