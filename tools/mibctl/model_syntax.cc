#include "model_syntax.hh"

#include <algorithm>
#include <charconv>
#include <optional>

#include "text.hh"

namespace mibctl {

namespace {

constexpr size_t kMaxChain = 32;  // data types that base on each other
constexpr size_t kFacetCost = sizeof(XmlElement);
constexpr int64_t kMaxLength = INT32_MAX;  // the library takes longer ones for "any"

// --- what a default may look like ---

// A default as the schema has it; nothing where the type refuses it.
using Usable = std::optional<std::string> (*)(const Entry& entry, const std::string& text);

bool fits(const Entry& entry, size_t size) { return !entry.max_len || size <= entry.max_len; }

std::optional<std::string> usable_text(const Entry& entry, const std::string& text) {
  if (!fits(entry, text.size())) return {};
  return text;
}

std::optional<std::string> usable_number(const Entry& entry, const std::string& text) {
  const std::optional<int64_t> number = parse_number(text, entry.min, entry.max);
  if (!number) return {};
  return std::to_string(*number);
}

std::optional<std::string> usable_long(const Entry&, const std::string& text) {
  if (!parse_number(text, INT64_MIN, INT64_MAX)) return {};
  return text;
}

std::optional<std::string> usable_unsigned_long(const Entry&, const std::string& text) {
  uint64_t number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (problem != std::errc() || end != text.data() + text.size()) return {};
  return text;
}

std::optional<std::string> usable_decimal(const Entry&, const std::string& text) {
  const bool is_signed = text.starts_with('-') || text.starts_with('+');
  const std::string_view number = std::string_view(text).substr(is_signed);
  const auto points = std::count(number.begin(), number.end(), '.');
  const auto digits =
      std::count_if(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (digits == 0 || points > 1 || static_cast<size_t>(points + digits) != number.size()) return {};
  return text;
}

std::optional<std::string> usable_hex(const Entry& entry, const std::string& text) {
  const bool is_hex = text.find_first_not_of("0123456789ABCDEFabcdef") == std::string::npos;
  if (!is_hex || text.size() % 2 || !fits(entry, text.size())) return {};
  return text;
}

std::optional<std::string> usable_bool(const Entry&, const std::string& text) {
  if (text == "true" || text == "1") return "true";
  if (text == "false" || text == "0") return "false";
  return {};
}

std::optional<std::string> usable_base64(const Entry& entry, const std::string& text) {
  constexpr std::string_view letters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const size_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
  const std::string_view data = std::string_view(text).substr(0, text.size() - padding);
  if (text.size() % 4 || data.find_first_not_of(letters) != std::string_view::npos) return {};
  if (!fits(entry, text.size() / 4 * 3 - padding)) return {};
  return text;
}

// The number in `digits` characters at `at`, or -1.
int digits_at(std::string_view text, size_t at, size_t digits) {
  int number = -1;
  const char* const end = text.data() + at + digits;
  const auto [stop, problem] = std::from_chars(text.data() + at, end, number);
  return problem == std::errc() && stop == end ? number : -1;
}

int days_of(int year, int month) {
  constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && year % 4 == 0 ? 29 : days[month - 1];  // right from 1901 to 2099
}

// "YYYY-MM-DDThh:mm:ss", without the fraction and the "Z" that may follow.
std::optional<std::string> usable_datetime(const Entry&, const std::string& text) {
  constexpr std::string_view form = "0000-00-00T00:00:00";
  if (text.size() < form.size()) return {};
  for (size_t i = 0; i < form.size(); ++i)
    if (form[i] != '0' && text[i] != form[i]) return {};

  std::string_view rest = std::string_view(text).substr(form.size());
  if (rest.ends_with('Z')) rest.remove_suffix(1);
  if (!rest.empty() && (rest[0] != '.' || rest.size() == 1)) return {};
  if (rest.find_first_not_of("0123456789", 1) != std::string_view::npos) return {};

  const auto within = [&text](size_t at, int lowest, int highest) {
    const int number = digits_at(text, at, 2);
    return number >= lowest && number <= highest;
  };
  const int year = digits_at(text, 0, 4);
  if (year < 1970 || year > 2037) return {};  // the seconds have 32 bits
  if (!within(5, 1, 12) || !within(8, 1, days_of(year, digits_at(text, 5, 2)))) return {};
  if (!within(11, 0, 23) || !within(14, 0, 59) || !within(17, 0, 59)) return {};
  return text.substr(0, form.size());
}

}  // namespace

// --- types ---

struct Primitive {
  std::string_view name;
  uint32_t type;
  int64_t lowest, highest;  // of numbers with bounds
  unsigned characters;      // of the value's text for each one that a size counts; 0: has no size
  Usable usable;
};

namespace {

constexpr Primitive primitives[] = {
    {"string", QMIBTREE_TYPE_STRING, 0, 0, 1, usable_text},
    {"int", QMIBTREE_TYPE_INT, INT32_MIN, INT32_MAX, 0, usable_number},
    {"unsignedInt", QMIBTREE_TYPE_UINT, 0, UINT32_MAX, 0, usable_number},
    {"boolean", QMIBTREE_TYPE_BOOL, 0, 0, 0, usable_bool},
    {"dateTime", QMIBTREE_TYPE_DATETIME, 0, 0, 0, usable_datetime},
    {"base64", QMIBTREE_TYPE_BASE64, 0, 0, 1, usable_base64},
    {"hexBinary", QMIBTREE_TYPE_STRING, 0, 0, 2, usable_hex},
    {"long", QMIBTREE_TYPE_STRING, 0, 0, 0, usable_long},
    {"unsignedLong", QMIBTREE_TYPE_STRING, 0, 0, 0, usable_unsigned_long},
    {"decimal", QMIBTREE_TYPE_STRING, 0, 0, 0, usable_decimal},
};

const Primitive* find_primitive(std::string_view name) {
  for (const Primitive& primitive : primitives)
    if (primitive.name == name) return &primitive;
  return nullptr;
}

bool is_deleted(const Part& part) {
  const std::string* const status = part.attribute("status");
  return status && *status == "deleted";
}

// The child that says the type; throws when there are two.
Part type_child(const Part& part) {
  Part type;
  for (const Part& child : part.children()) {
    if (child.name() != "dataType" && !find_primitive(child.name())) continue;
    if (type) throw child.refused("a second type", "first at " + type.place().text());
    type = child;
  }
  return type;
}

void take_list(Syntax& syntax, const Part& part) {
  for (const Part& list : part.children("list"))
    if (!syntax.list) syntax.list = list;
}

// The name of the type that a <dataType> uses or bases on, or null.
const std::string* base_of(const Part& part, bool is_definition) {
  const std::string* const ref = is_definition ? nullptr : part.attribute("ref");
  return ref ? ref : part.attribute("base");
}

// Follows a type to its primitive one.
void take_type(Library& library, Syntax& syntax, Part type) {
  std::vector<const XmlElement*> passed;
  while (type.name() == "dataType") {
    if (std::find(passed.begin(), passed.end(), type.element) != passed.end())
      throw type.refused("dataType " + shown(type.required("name")) + " bases on itself");
    if (passed.size() == kMaxChain)
      throw type.refused("data types nested too deep", "at most " + std::to_string(kMaxChain));
    const bool is_definition = !passed.empty();
    passed.push_back(type.element);
    syntax.holders.push_back(type);
    take_list(syntax, type);

    const std::string* const base = base_of(type, is_definition);
    const Part own = type_child(type);
    if (own && base)
      throw own.refused("a second type", "the data type has the base " + shown(*base));
    if (!own && !base) throw type.refused("<dataType> without a type", "a base or one inside");
    if (syntax.source.empty()) syntax.source = base ? *base : std::string(own.name());
    if (own) {
      type = own;
      continue;
    }
    syntax.primitive = find_primitive(*base);
    if (syntax.primitive) return;
    type = library.find("dataType", *base, type);
  }
  syntax.primitive = find_primitive(type.name());
  if (syntax.source.empty()) syntax.source = type.name();
  syntax.holders.push_back(type);
}

}  // namespace

Syntax read_syntax(Library& library, const Part& part) {
  Syntax syntax;
  take_list(syntax, part);
  if (syntax.list) syntax.source = "list";
  if (const Part type = type_child(part)) take_type(library, syntax, type);
  for (const Part& defval : part.children("default"))
    if (!syntax.defval || is_deleted(syntax.defval)) syntax.defval = defval;
  return syntax;
}

void amend(Syntax& syntax, const Syntax& given) {
  if (given.defval) syntax.defval = given.defval;
  if (given.list) syntax.list = given.list;
  if (!given.primitive) {
    if (given.list) syntax.source = given.source;
    return;
  }
  if (given.primitive == syntax.primitive && given.source == syntax.source) {
    syntax.holders.insert(syntax.holders.begin(), given.holders.front());
    return;
  }
  syntax.primitive = given.primitive;
  syntax.source = given.source;
  syntax.holders = given.holders;
  syntax.list = given.list;
}

uint32_t type_of(const Syntax& syntax) {
  return syntax.list ? QMIBTREE_TYPE_STRING : syntax.primitive->type;
}

namespace {

// --- facets ---

int64_t saturated(const Part& part, const std::string& text) {
  constexpr int64_t lowest = INT64_MIN, highest = INT64_MAX;
  const std::optional<int64_t> number = parse_number(text, lowest, highest);
  if (number) return *number;
  const bool negative = text.starts_with('-');
  const std::string_view digits = std::string_view(text).substr(negative || text.starts_with('+'));
  if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos)
    throw part.refused("not a whole number: " + shown(text));
  return negative ? lowest : highest;
}

struct Bounds {
  int64_t lowest, highest;
};

constexpr Bounds kAnySize = {0, INT64_MAX};

// What one facet's two attributes say; `open` where one is missing.
Bounds bounds_of(const Part& part, std::string_view low, std::string_view high, Bounds open) {
  const std::string* const lowest = part.attribute(low);
  const std::string* const highest = part.attribute(high);
  const Bounds bounds = {lowest ? saturated(part, *lowest) : open.lowest,
                         highest ? saturated(part, *highest) : open.highest};
  if (lowest && highest && bounds.lowest > bounds.highest)
    throw part.refused(std::string(low) + " is above " + std::string(high));
  return bounds;
}

// What several sizes allow together; `open` without any.
Bounds hull_of_sizes(const std::vector<Part>& sizes, Bounds open) {
  if (sizes.empty()) return open;
  Bounds hull = {INT64_MAX, 0};
  for (const Part& part : sizes) {
    const Bounds size = bounds_of(part, "minLength", "maxLength", open);
    if (size.lowest < 0 || size.highest < 0) throw part.refused("a size below 0");
    hull = {std::min(hull.lowest, size.lowest), std::max(hull.highest, size.highest)};
  }
  return hull;
}

// Applies one syntax to one entry.
class Application {
 public:
  Application(Library& library, const Syntax& syntax, Entry& entry, std::vector<Note>& notes)
      : library_(library), syntax_(syntax), entry_(entry), notes_(notes) {}

  void run() {
    entry_.type = type_of(syntax_);
    entry_.source = syntax_.source;
    entry_.list = static_cast<bool>(syntax_.list);
    set_words();
    if (entry_.list) {
      set_list();
    } else {
      if (entry_.type == QMIBTREE_TYPE_STRING && syntax_.primitive->name != "string")
        note(std::string(syntax_.primitive->name) + " as string",
             syntax_.primitive->characters == 2 ? "two digits a byte" : "");
      set_length(sizes(), syntax_.primitive->characters);
      set_range();
    }
    if (!facets("pattern").empty()) note("pattern not enforced");
    set_default();
  }

 private:
  void note(const std::string& kind, const std::string& detail = "") {
    notes_.push_back({entry_.place, entry_.path(), kind, detail});
  }

  std::vector<Part> facets_of(const Part& holder, std::string_view kind) {
    library_.spend(holder.element->children.size() * kFacetCost, holder);
    std::vector<Part> found = holder.children(kind);
    std::erase_if(found, is_deleted);
    return found;
  }

  // The facets of one kind that count: those of the nearest element that has any.
  std::vector<Part> facets(std::string_view kind) {
    for (const Part& holder : syntax_.holders) {
      std::vector<Part> found = facets_of(holder, kind);
      if (!found.empty()) return found;
    }
    return {};
  }

  // Those of each element that has any, the nearest last: where a size or range leaves an end open,
  // it ends as the one before.
  std::vector<std::vector<Part>> facets_upwards(std::string_view kind) {
    std::vector<std::vector<Part>> all;
    for (auto holder = syntax_.holders.rbegin(); holder != syntax_.holders.rend(); ++holder)
      if (std::vector<Part> found = facets_of(*holder, kind); !found.empty())
        all.push_back(std::move(found));
    return all;
  }

  void set_words() {
    if (syntax_.primitive->type != QMIBTREE_TYPE_STRING) return;
    for (const Part& part : facets("enumeration")) {
      const std::string& word = part.required("value");
      library_.spend(sizeof word + word.size(), part);
      entry_.words.push_back(word);
    }
  }

  void set_list() {
    note("list as string", "of " + std::string(syntax_.primitive->name));
    set_length(hull_of_sizes(facets_of(syntax_.list, "size"), kAnySize), 1);
    if (!facets("size").empty() || !facets("range").empty()) note("bounds of items not enforced");
    if (syntax_.list.attribute("minItems") || syntax_.list.attribute("maxItems"))
      note("number of items not enforced");
  }

  Bounds sizes() {
    Bounds all = kAnySize;
    for (const std::vector<Part>& sizes : facets_upwards("size")) all = hull_of_sizes(sizes, all);
    return all;
  }

  void set_length(Bounds size, unsigned characters) {
    if (!characters) return;
    if (size.lowest > 0) note("minLength not enforced", std::to_string(size.lowest));
    if (size.highest == INT64_MAX) return;
    if (size.highest > kMaxLength / characters)
      return note("maxLength too large to enforce", std::to_string(size.highest));
    entry_.max_len = static_cast<uint32_t>(size.highest) * characters;
  }

  void set_range() {
    const Primitive& primitive = *syntax_.primitive;
    const std::vector<std::vector<Part>> all = facets_upwards("range");
    entry_.min = primitive.lowest;
    entry_.max = primitive.highest;
    if (all.empty()) return;
    if (primitive.usable != usable_number) return note("range not enforced");

    Bounds hull = {primitive.lowest, primitive.highest};
    for (const std::vector<Part>& ranges : all) hull = hull_of_ranges(ranges, hull);
    entry_.min = std::max(hull.lowest, primitive.lowest);
    entry_.max = std::min(hull.highest, primitive.highest);
    if (entry_.min > entry_.max)
      throw all.back()[0].refused("no " + std::string(primitive.name) + " within the range");
    if (entry_.min != hull.lowest || entry_.max != hull.highest) note("range cut to the type's");
  }

  Bounds hull_of_ranges(const std::vector<Part>& ranges, Bounds open) {
    std::vector<Bounds> all;
    for (const Part& part : ranges) {
      all.push_back(bounds_of(part, "minInclusive", "maxInclusive", open));
      if (part.attribute("step")) note("step not enforced", *part.attribute("step"));
    }
    std::sort(all.begin(), all.end(),
              [](const Bounds& a, const Bounds& b) { return a.lowest < b.lowest; });
    Bounds hull = all[0];
    bool has_gap = false;
    for (const Bounds& bounds : all) {
      has_gap |= bounds.lowest > hull.highest && bounds.lowest - 1 > hull.highest;
      hull.highest = std::max(hull.highest, bounds.highest);
    }
    if (has_gap) note("gap in range not enforced");
    return hull;
  }

  void set_default() {
    if (!syntax_.defval || is_deleted(syntax_.defval)) return;
    const std::string& type = syntax_.defval.required("type");
    const std::string& value = syntax_.defval.required("value");
    if (type == "implementation" || type == "parameter")
      return note("default of the " + type + " kind left out", shown(value));
    if (type != "object" && type != "factory")
      throw syntax_.defval.refused("unknown default type " + shown(type),
                                   "object, factory, implementation or parameter");
    library_.spend(value.size(), syntax_.defval);
    entry_.defval =
        entry_.list ? usable_text(entry_, value) : syntax_.primitive->usable(entry_, value);
    if (!entry_.defval) return note("default not usable", shown(value));
    if (!is_allowed(*entry_.defval)) note("default is none of the values allowed", shown(value));
  }

  bool is_allowed(std::string_view text) const {
    if (entry_.words.empty() || (entry_.list && text.empty())) return true;
    while (entry_.list) {
      const size_t comma = text.find(',');
      if (comma == std::string_view::npos) break;
      if (!has_word(text.substr(0, comma))) return false;
      text.remove_prefix(comma + 1);
      text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    }
    return has_word(text);
  }

  bool has_word(std::string_view word) const {
    return std::find(entry_.words.begin(), entry_.words.end(), word) != entry_.words.end();
  }

  Library& library_;
  const Syntax& syntax_;
  Entry& entry_;
  std::vector<Note>& notes_;
};

}  // namespace

void apply_syntax(Library& library, const Syntax& syntax, Entry& entry, std::vector<Note>& notes) {
  Application(library, syntax, entry, notes).run();
}

}  // namespace mibctl
