#include "model_document.hh"

#include <expat.h>

#include <algorithm>
#include <cstring>
#include <exception>

#include "text.hh"

namespace mibctl {

namespace {

constexpr uint64_t kMaxFile = 64 << 20;
constexpr unsigned kMaxNesting = 64;
constexpr size_t kMaxElements = 500'000;  // of all files; published models have up to 30,000
constexpr size_t kMaxSpent = 64 << 20;    // published models need up to 2 MiB
constexpr size_t kMaxName = 256;
constexpr size_t kMaxShown = 80;

}  // namespace

std::string shown(std::string_view text) {
  if (text.size() <= kMaxShown) return quoted_value(text);
  return quoted_value(text.substr(0, kMaxShown)) + "...";
}

bool is_definition_name(std::string_view name) {
  return !name.empty() && name.size() <= kMaxName &&
         std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7F; });
}

Place Part::place() const { return {document->file, element->line, element->column}; }

const std::string* Part::attribute(std::string_view name) const {
  for (const XmlAttribute& attribute : element->attributes)
    if (attribute.name == name) return &attribute.value;
  return nullptr;
}

const std::string& Part::required(std::string_view name) const {
  const std::string* const value = attribute(name);
  if (!value) throw refused("<" + std::string(element->name) + "> without " + std::string(name));
  return *value;
}

std::vector<Part> Part::children(std::string_view name) const {
  std::vector<Part> parts;
  for (const XmlElement& child : element->children)
    if (name.empty() || child.name == name) parts.push_back({document, &child});
  return parts;
}

Error Part::refused(const std::string& text, const std::string& detail) const {
  return {Status::refused, place(), text, detail};
}

namespace {

// The form: which elements an element may have in it and which attributes, as far as they mean
// something here. Names are separated by blanks.
struct Form {
  std::string_view name, children, attributes;
};

#define PRIMITIVES \
  "string int unsignedInt long unsignedLong boolean dateTime base64 hexBinary decimal"
#define FACETS "size range enumeration pattern"

constexpr Form forms[] = {
    {"document", "dataType component import model", ""},
    {"import", "dataType component model", "file"},
    {"dataType", "list " PRIMITIVES " " FACETS, "name base ref"},
    {"component", "parameter object component", "name ref path"},
    {"model", "parameter object component profile", "name base isService"},
    {"object", "parameter component",
     "name base ref access status minEntries maxEntries numEntriesParameter"},
    {"parameter", "syntax", "name base ref access status activeNotify"},
    {"syntax", "list dataType default " PRIMITIVES, ""},
    {"list", "size", "minItems maxItems"},
    {"string", FACETS, ""},
    {"int", FACETS, ""},
    {"unsignedInt", FACETS, ""},
    {"long", FACETS, ""},
    {"unsignedLong", FACETS, ""},
    {"boolean", FACETS, ""},
    {"dateTime", FACETS, ""},
    {"base64", FACETS, ""},
    {"hexBinary", FACETS, ""},
    {"decimal", FACETS, ""},
    {"size", "", "minLength maxLength status"},
    {"range", "", "minInclusive maxInclusive step status"},
    {"enumeration", "", "value status"},
    {"pattern", "", "status"},
    {"default", "", "type value status"},
    {"profile", "parameter object", "name base extends"},
};

#undef PRIMITIVES
#undef FACETS

// What the form has besides and nobody misses.
constexpr std::string_view silent_elements =
    "description bibliography glossary abbreviations template uniqueKey enumerationRef pathRef "
    "instanceRef units reference";
constexpr std::string_view silent_attributes =
    "file spec version id action name ref base status access value type optional mandatory "
    "requirement hidden command forcedInform activeNotify functional fixedObject noUniqueKeys "
    "enableParameter previousObject previousParameter previousProfile previousComponent "
    "nestedBrackets minItems maxItems targetParam targetParent targetType refType nullValue";

// The word as it stands in the list, or "".
std::string_view word_of(std::string_view words, std::string_view word) {
  for (;;) {
    const std::string_view first = words.substr(0, words.find(' '));
    if (first == word || first.size() == words.size()) return first == word ? first : "";
    words.remove_prefix(first.size() + 1);
  }
}

bool has_word(std::string_view words, std::string_view word) {
  return !word_of(words, word).empty();
}

// Blanks around a name or number do not count; published documents have some.
std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  return text.substr(0, text.find_last_not_of(blanks) + 1);  // npos + 1 is 0
}

const Form& form_of(std::string_view name) {
  return *std::find_if(std::begin(forms), std::end(forms),
                       [name](const Form& form) { return form.name == name; });
}

std::string_view local_name(std::string_view name) {
  return name.substr(name.rfind(':') + 1);  // npos + 1 is 0
}

// Fills a document from its file's text.
class Parser {
 public:
  Parser(Library& library, Document& document, std::string_view text)
      : library_(library),
        document_(document),
        text_(text),
        expat_(XML_ParserCreate(nullptr), &XML_ParserFree) {
    if (!expat_) throw std::bad_alloc();
    XML_SetUserData(expat_.get(), this);
    XML_SetElementHandler(expat_.get(), on_start, on_end);
    XML_SetStartDoctypeDeclHandler(expat_.get(), on_doctype);
  }

  void run() {
    const XML_Status status =
        XML_Parse(expat_.get(), text_.data(), static_cast<int>(text_.size()), 1);
    if (problem_) std::rethrow_exception(problem_);
    if (status != XML_STATUS_OK) throw refused(XML_ErrorString(XML_GetErrorCode(expat_.get())));
  }

 private:
  static void on_start(void* self, const char* name, const char** attributes) {
    auto* const parser = static_cast<Parser*>(self);
    parser->guarded([=] { parser->start(name, attributes); });
  }
  static void on_end(void* self, const char*) {
    auto* const parser = static_cast<Parser*>(self);
    parser->guarded([=] { parser->end(); });
  }
  static void on_doctype(void* self, const char*, const char*, const char*, int) {
    auto* const parser = static_cast<Parser*>(self);
    parser->guarded([=] { throw parser->refused("document type declarations are not allowed"); });
  }

  // Exceptions do not pass through expat.
  template <class Action>
  void guarded(const Action& action) {
    if (problem_) return;
    try {
      action();
    } catch (...) {
      problem_ = std::current_exception();
      XML_StopParser(expat_.get(), XML_FALSE);
    }
  }

  void start(std::string_view full_name, const char** attributes) {
    if (++nesting_ > kMaxNesting)
      throw refused("elements nested too deep", "at most " + std::to_string(kMaxNesting));
    if (!library_.take_element())
      throw refused("too many elements", "at most " + grouped(kMaxElements));
    if (ignored_from_) return;

    const std::string_view name = local_name(full_name);
    if (open_.empty()) return open_root(name);
    if (!has_word(form_of(open_.back()->name).children, name)) return ignore(name);
    std::vector<XmlElement>& siblings = open_.back()->children;
    open(siblings.emplace_back(), form_of(name), attributes);
  }

  void open_root(std::string_view name) {
    if (name != "document")
      throw refused("not a data-model document", "its first element is <" + shown(name) + ">");
    open(document_.root, form_of(name), nullptr);
  }

  void open(XmlElement& element, const Form& form, const char** attributes) {
    const Place place = here();
    element.name = form.name;
    element.line = place.line;
    element.column = place.column;
    for (; attributes && *attributes; attributes += 2)
      take_attribute(element, form, attributes[0], attributes[1]);
    open_.push_back(&element);
  }

  void take_attribute(XmlElement& element, const Form& form, std::string_view name,
                      const char* value) {
    if (name.find(':') != std::string_view::npos) return;  // of another name space
    const std::string_view known = word_of(form.attributes, name);
    if (!known.empty()) {
      element.attributes.push_back(
          {known, std::string(known == "value" ? std::string_view(value) : trimmed(value))});
      return;
    }
    if (!has_word(silent_attributes, name))
      library_.note_once(here(), "ignored attribute " + shown(name));
  }

  void ignore(std::string_view name) {
    ignored_from_ = nesting_;
    if (!has_word(silent_elements, name))
      library_.note_once(here(), "ignored <" + shown(name) + ">");
  }

  void end() {
    if (!ignored_from_) open_.pop_back();
    if (ignored_from_ == nesting_) ignored_from_ = 0;
    --nesting_;
  }

  // Where the parser is. Counts on from where it was.
  Place here() {
    const auto index =
        std::min(static_cast<size_t>(XML_GetCurrentByteIndex(expat_.get())), text_.size());
    for (; counted_ < index; ++counted_) {
      if (text_[counted_] != '\n') continue;
      ++line_;
      line_start_ = counted_ + 1;
    }
    return {document_.file, line_, static_cast<unsigned>(index - line_start_) + 1};
  }

  Error refused(const std::string& text, const std::string& detail = "") {
    return {Status::refused, here(), text, detail};
  }

  Library& library_;
  Document& document_;
  const std::string_view text_;
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> expat_;
  std::exception_ptr problem_;
  std::vector<XmlElement*>
      open_;  // a parent's list does not grow while one of its elements is open
  unsigned nesting_ = 0;
  unsigned ignored_from_ = 0;  // nesting of the element that is ignored with all inside, or 0
  size_t counted_ = 0;         // bytes whose lines are counted
  size_t line_start_ = 0;
  unsigned line_ = 1;
};

void add_known(Document& document, const XmlElement& element, const XmlElement* import) {
  const Part part = {&document, &element};
  const std::string& name = part.required("name");
  if (!is_definition_name(name)) throw part.refused("not a name: " + shown(name));
  const auto [first, is_new] =
      document.known.emplace(std::pair(element.name, name), Document::Known{&element, import});
  if (is_new) return;
  throw part.refused(std::string(element.name) + " " + name + " is defined twice",
                     "first at " + Part{&document, first->second.element}.place().text());
}

void list_definitions(Document& document) {
  for (const XmlElement& element : document.root.children) {
    if (element.name != "import") {
      add_known(document, element, nullptr);
      continue;
    }
    for (const XmlElement& imported : element.children) add_known(document, imported, &element);
  }
}

}  // namespace

const Document& Library::read(const std::string& file) {
  std::unique_ptr<Document>& document = documents_[file];
  if (document) return *document;
  auto fresh = std::make_unique<Document>();
  fresh->file = file;
  const std::string text = read_file(file, kMaxFile);
  Parser(*this, *fresh, text).run();
  list_definitions(*fresh);
  document = std::move(fresh);
  return *document;
}

std::vector<std::string> Library::files() const {
  std::vector<std::string> files;
  for (const auto& [file, document] : documents_) files.push_back(file);
  return files;
}

const Document& Library::imported(const Part& import) {
  const std::string& name = import.required("file");
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
    throw import.refused("not a file of the same folder: " + shown(name));
  const std::string& importer = import.document->file;
  const std::string file = importer.substr(0, importer.rfind('/') + 1) + name;
  try {
    return read(file);
  } catch (const Error& error) {
    if (error.status != Status::storage) throw;
    throw Error(Status::storage, import.place(), file + " " + error.text, error.detail);
  }
}

Part Library::find(std::string_view kind, const std::string& name, const Part& user) {
  std::set<const XmlElement*> passed;
  const Document* document = user.document;
  Part asking = user;
  std::string wanted = name;
  for (;;) {
    const auto found = document->known.find({kind, wanted});
    if (found == document->known.end())
      throw asking.refused("unknown " + std::string(kind) + " " + shown(wanted),
                           "neither defined nor imported in " + document->file);
    const auto [element, import] = found->second;
    if (!import) return {document, element};

    asking = {document, element};
    if (!passed.insert(element).second)
      throw asking.refused(std::string(kind) + " " + shown(wanted) +
                           " is imported in a cycle and defined nowhere");
    if (const std::string* const ref = asking.attribute("ref")) wanted = *ref;
    document = &imported({document, import});
  }
}

void Library::spend(size_t bytes, const Part& part) {
  spent_ += bytes;
  if (spent_ > kMaxSpent)
    throw part.refused("the model is too large",
                       "more than " + grouped(kMaxSpent) + " bytes of texts and facets");
}

bool Library::take_element() { return ++elements_ <= kMaxElements; }

void Library::note_once(const Place& place, const std::string& kind) {
  if (noted_.insert(kind).second) notes_->push_back({place, "", kind, ""});
}

}  // namespace mibctl
