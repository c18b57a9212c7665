// The library's rules in their plainest form: no tables, nothing unrolled, nothing kept from one
// call to the next. Fuzz targets and tests judge what the library answers by them.
#pragma once
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "qmibtree.h"

namespace plain {

// --- hashes ---

inline uint32_t word(char c) { return static_cast<uint32_t>(int32_t{static_cast<signed char>(c)}); }

inline uint32_t power(uint32_t base, size_t exponent) {
  uint32_t product = 1;
  for (; exponent > 0; --exponent) product *= base;
  return product;
}

constexpr uint32_t kResult = 0x7fffffff;

// start * factor^n + the sum of each byte times factor^(bytes behind it).
inline uint32_t polynomial(const std::string& text, uint32_t start, uint32_t factor) {
  uint32_t sum = 0, weight = 1;
  for (size_t i = text.size(); i-- > 0; weight *= factor) sum += word(text[i]) * weight;
  return (start * weight + sum) & kResult;
}

inline uint32_t bkdr(const std::string& text) { return polynomial(text, 0, 131); }
inline uint32_t sdbm(const std::string& text) { return polynomial(text, 0, 65599); }
inline uint32_t djb(const std::string& text) { return polynomial(text, 5381, 33); }

inline uint32_t rs(const std::string& text) {
  uint32_t hash = 0;
  for (size_t i = 0; i < text.size(); ++i) hash = hash * (63689 * power(378551, i)) + word(text[i]);
  return hash & kResult;
}

inline uint32_t js(const std::string& text) {
  uint32_t hash = 1315423911;
  for (const char c : text) hash = hash ^ (hash * 32 + word(c) + hash / 4);
  return hash & kResult;
}

// PJW and ELF fold the top four bits back in, which comes to the same.
inline uint32_t folded(const std::string& text) {
  uint32_t hash = 0;
  for (const char c : text) {
    hash = hash * 16 + word(c);
    hash = (hash ^ (hash / 0x10000000 * 16)) % 0x10000000;
  }
  return hash;
}

inline uint32_t ap(const std::string& text) {
  uint32_t hash = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const uint32_t even = (hash * 128) ^ word(text[i]) ^ (hash / 8);
    const uint32_t odd = UINT32_MAX - ((hash * 2048) ^ word(text[i]) ^ (hash / 32));
    hash = hash ^ (i % 2 == 0 ? even : odd);
  }
  return hash & kResult;
}

// --- names ---

inline std::string joined(const std::string& prefix, const std::string& suffix) {
  return (prefix + suffix).substr(0, 511);
}

inline std::string instance_segment(uint32_t number) {
  return (std::to_string(static_cast<int32_t>(number)) + ".").substr(0, 4);
}

inline bool is_template(const qmibtree_node* node) {
  constexpr uint32_t kNone = QMIBTREE_NODE_PARAM | QMIBTREE_NODE_INSTANCE;
  return !(node->flags & kNone) && (node->uidinfo->flags & QMIBTREE_UID_MULTI);
}

// Every node of a tree, parents before what is below them.
inline std::vector<qmibtree_node*> nodes(const qmibtree_inst_t* inst) {
  std::vector<qmibtree_node*> all = {inst->root};
  for (size_t i = 0; i < all.size(); ++i)
    for (qmibtree_node* child = all[i]->first_child; child; child = child->next)
      all.push_back(child);
  return all;
}

// --- numbers ---

inline bool is_space(char c) { return std::string(" \t\n\v\f\r").find(c) != std::string::npos; }

// The decimal number that a text begins with, modulo 2^32.
inline uint32_t decimal(const std::string& text) {
  size_t at = 0;
  while (at < text.size() && is_space(text[at])) ++at;
  const bool negative = at < text.size() && text[at] == '-';
  if (negative || (at < text.size() && text[at] == '+')) ++at;
  size_t end = at;
  while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
  uint32_t number = 0, weight = 1;
  for (; end-- > at; weight *= 10) number += static_cast<uint32_t>(text[end] - '0') * weight;
  return negative ? uint32_t{0} - number : number;
}

inline std::optional<uint32_t> hex_digit(char c) {
  const auto at = std::string("0123456789abcdef")
                      .find(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  if (at == std::string::npos) return {};
  return static_cast<uint32_t>(at);
}

// The number that a text's hexadecimal digits make up, modulo 2^32, other characters left out.
inline uint32_t hex(const std::string& text) {
  uint32_t number = 0;
  for (const char c : text)
    if (const auto digit = hex_digit(c)) number = number * 16 + *digit;
  return number;
}

// --- base64 ---

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

inline std::string encoded(const std::string& bytes) {
  std::string bits, text;
  for (const char byte : bytes)
    for (int bit = 7; bit >= 0; --bit) bits += static_cast<char>('0' + (byte >> bit & 1));
  while (bits.size() % 6 != 0) bits += "00";
  for (size_t at = 0; at < bits.size(); at += 6)
    text += kAlphabet[std::stoul(bits.substr(at, 6), nullptr, 2)];
  while (text.size() % 4 != 0) text += '=';
  return text;
}

// One group of four; nothing when it is none.
inline std::optional<std::string> decoded_group(const std::string& group) {
  const std::string alphabet = kAlphabet;
  std::string bits;
  for (size_t i = 0; i < 4; ++i) {
    const size_t digit = alphabet.find(group[i]);
    if (digit == std::string::npos && (group[i] != '=' || i < 2)) return {};
    for (int bit = 5; bit >= 0; --bit) bits += digit >> bit & 1 ? '1' : '0';
  }
  // Padding cuts its own group, whatever stands behind it.
  const size_t padding = group.find('=');
  const size_t count = padding == std::string::npos ? 3 : padding - 1;
  std::string bytes;
  for (size_t i = 0; i < count; ++i)
    bytes += static_cast<char>(std::stoul(bits.substr(8 * i, 8), nullptr, 2));
  return bytes;
}

inline std::optional<std::string> decoded(const std::string& text) {
  std::string bytes;
  if (text.size() % 4 != 0) return {};
  for (size_t at = 0; at < text.size(); at += 4) {
    const auto group = decoded_group(text.substr(at, 4));
    if (!group) return {};
    bytes += *group;
  }
  return bytes;
}

// --- dates ---

// Days from 1970-01-01, counted year by year and month by month.
inline bool is_leap(int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

inline int days_of_month(int64_t year, int month) {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return kDays[month - 1] + (month == 2 && is_leap(year));
}

inline std::string datetime_text(int32_t seconds) {
  constexpr int64_t kDay = 86400;
  int64_t days = 0, rest = seconds;
  for (; rest < 0; rest += kDay) --days;
  for (; rest >= kDay; rest -= kDay) ++days;
  int64_t year = 1970;
  for (; days < 0; days += 365 + is_leap(year)) --year;
  for (; days >= 365 + is_leap(year); ++year) days -= 365 + is_leap(year);
  int month = 1;
  for (; days >= days_of_month(year, month); ++month) days -= days_of_month(year, month);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", static_cast<int>(year), month,
                static_cast<int>(days) + 1, static_cast<int>(rest / 3600),
                static_cast<int>(rest / 60 % 60), static_cast<int>(rest % 60));
  return text;
}

// --- values ---

inline std::string value_text(const qmibtree_value_t& value) {
  switch (value.type) {
    case QMIBTREE_TYPE_INT:
      return std::to_string(value.i);
    case QMIBTREE_TYPE_UINT:
      return std::to_string(value.u);
    case QMIBTREE_TYPE_BOOL:
      return value.b ? "true" : "false";
    case QMIBTREE_TYPE_STRING:
    case 8:  // the string type under other numbers
    case 9:
    case 10:
      return value.str ? value.str : "<null>";
    case QMIBTREE_TYPE_BASE64:
      if (!value.data) return "";
      return encoded({reinterpret_cast<const char*>(value.data), value.len});
    case QMIBTREE_TYPE_DATETIME:
      return datetime_text(value.t);
    default:
      return "";
  }
}

// What a parameter of `type` shows once it was written from a text; nothing where that is refused.
inline std::optional<std::string> written_text(uint32_t type, const std::string& text) {
  switch (type) {
    case QMIBTREE_TYPE_INT:
      return std::to_string(static_cast<int32_t>(decimal(text)));
    case QMIBTREE_TYPE_UINT:
      return std::to_string(decimal(text));
    case QMIBTREE_TYPE_BOOL:
      if (text == "true" || text == "1") return "true";
      if (text == "false" || text == "0") return "false";
      return {};
    case QMIBTREE_TYPE_STRING:
      return text;
    case QMIBTREE_TYPE_BASE64:
      return encoded(decoded(text).value_or(""));
    default:
      return {};
  }
}

inline bool in_bounds(const qmibtree_uidinfo_t& record, const qmibtree_value_t& value) {
  const auto limit = static_cast<int32_t>(record.max_len);
  const auto fits = [&](size_t size) { return limit <= 0 || size <= static_cast<size_t>(limit); };
  switch (value.type) {
    case QMIBTREE_TYPE_INT:
      return value.i >= record.int_min && value.i <= record.int_max;
    case QMIBTREE_TYPE_UINT:
      return value.u >= record.uint_min && value.u <= record.uint_max;
    case QMIBTREE_TYPE_STRING:
      return !value.str || fits(std::string(value.str).size());
    case QMIBTREE_TYPE_BASE64:
      return !value.data || fits(value.len);
    default:
      return true;
  }
}

// --- the document ---

inline std::string parameter_element(qmibtree_inst_t* inst, qmibtree_node* node) {
  const uint32_t rules = node->uidinfo->flags, flags = node->flags;
  const bool saved = (rules & QMIBTREE_UID_SAVE) ||
                     ((rules & QMIBTREE_UID_SAVE_MODIFIED) && (flags & QMIBTREE_NODE_MODIFIED));
  std::string attributes;
  if (flags & QMIBTREE_NODE_NOTIF_ACTIVE)
    attributes += " notification=\"2\"";
  else if (flags & QMIBTREE_NODE_NOTIF_PASSIVE)
    attributes += " notification=\"1\"";
  if (flags & QMIBTREE_NODE_ACCESS) attributes += " accesslist=\"subscriber\"";
  if (!saved && attributes.empty()) return "";
  if (!saved) attributes += " ignorevalue=\"yes\"";
  qmibtree_value_t value = {};
  if (saved) qmibtree_read_by_node(inst, node, &value, QMIBTREE_PHASE_ENTER);
  return "<PARAM name=\"" + std::string(node->name) + "\"" + attributes + ">" + value_text(value) +
         "</PARAM>\n";
}

// The elements of a subtree: nothing where none of it is saved.
inline std::string elements(qmibtree_inst_t* inst, qmibtree_node* node) {
  if (node->flags & QMIBTREE_NODE_PARAM) return parameter_element(inst, node);
  std::string inside;
  for (qmibtree_node* child = node->first_child; child; child = child->next)
    inside += elements(inst, child);
  if (is_template(node)) return inside;  // its instances bear its name
  const bool is_instance = node->flags & QMIBTREE_NODE_INSTANCE;
  if (!is_instance && inside.empty()) return "";
  const std::string name = is_instance ? node->parent->name : node->name;
  std::string attributes;
  if (is_instance)
    attributes = " instance=\"" + std::to_string(static_cast<int32_t>(node->instance)) + "\"";
  if (is_instance && node->right != 255)
    attributes += " right=\"" + std::to_string(static_cast<int32_t>(node->right)) + "\"";
  return "<" + name + attributes + ">\n" + inside + "</" + name + ">\n";
}

// The document of a subtree: what is around it is opened, and not closed.
inline std::string document(qmibtree_inst_t* inst, qmibtree_node* node) {
  const std::string inside = elements(inst, node);
  std::string around;
  for (qmibtree_node* above = node->parent; above && !inside.empty(); above = above->parent)
    if (!is_template(above)) around = "<" + std::string(above->name) + ">\n" + around;
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + around + inside;
}

// The same by formats into a buffer, one step after the other, as the walk comes by: where it stops
// in a buffer that is too small, and what it leaves there.
struct stepwise_writer {
  qmibtree_buff_t* buff;
  qmibtree_node* open = nullptr;

  uint32_t open_parents(const qmibtree_node* node) {
    if (!node || node == open) return QMIBTREE_RC_OK;
    const uint32_t rc = open_parents(node->parent);
    if (QMIBTREE_FAILED(rc) || is_template(node)) return rc;
    return qmibtree_buff_dump(buff, "<%s>\n", node->name);
  }
  uint32_t enter_instance(const qmibtree_node* node) {
    const uint32_t rc = open_parents(node->parent);
    if (QMIBTREE_FAILED(rc)) return rc;
    const char* const name = node->parent->name;
    const int number = static_cast<int>(node->instance), right = static_cast<int>(node->right);
    if (right == 255) return qmibtree_buff_dump(buff, "<%s instance=\"%d\">\n", name, number);
    return qmibtree_buff_dump(buff, "<%s instance=\"%d\" right=\"%d\">\n", name, number, right);
  }
  uint32_t enter_parameter(qmibtree_inst_t* inst, qmibtree_node* node) {
    const uint32_t rules = node->uidinfo->flags, flags = node->flags;
    const bool saved = (rules & QMIBTREE_UID_SAVE) ||
                       ((rules & QMIBTREE_UID_SAVE_MODIFIED) && (flags & QMIBTREE_NODE_MODIFIED));
    const bool active = flags & QMIBTREE_NODE_NOTIF_ACTIVE;
    const bool noted = active || (flags & QMIBTREE_NODE_NOTIF_PASSIVE);
    const bool access = flags & QMIBTREE_NODE_ACCESS;
    if (!saved && !noted && !access) return QMIBTREE_RC_OK;
    uint32_t rc = open_parents(node->parent);
    open = node->parent;
    if (!QMIBTREE_FAILED(rc)) rc = qmibtree_buff_dump(buff, "<PARAM name=\"%s\"", node->name);
    if (!QMIBTREE_FAILED(rc) && noted)
      rc = qmibtree_buff_dump(buff, " notification=\"%d\"", active ? 2 : 1);
    if (!QMIBTREE_FAILED(rc) && access) rc = qmibtree_buff_dump(buff, " accesslist=\"subscriber\"");
    if (!QMIBTREE_FAILED(rc) && !saved) rc = qmibtree_buff_dump(buff, " ignorevalue=\"yes\"");
    if (!QMIBTREE_FAILED(rc)) rc = qmibtree_buff_dump(buff, ">");
    qmibtree_value_t value = {};
    if (saved && !QMIBTREE_FAILED(rc)) rc = qmibtree_read_by_node(inst, node, &value, 1);
    if (saved && !QMIBTREE_FAILED(rc))
      rc = qmibtree_buff_dump(buff, "%s", value_text(value).c_str());
    return QMIBTREE_FAILED(rc) ? rc : qmibtree_buff_dump(buff, "</PARAM>\n");
  }
  uint32_t leave(const qmibtree_node* node) {
    if (open != node) return QMIBTREE_RC_OK;
    const qmibtree_node* const named = node->flags & QMIBTREE_NODE_INSTANCE ? node->parent : node;
    open = named->parent;
    return qmibtree_buff_dump(buff, "</%s>\n", named->name);
  }
};

inline uint32_t write_step(qmibtree_inst_t* inst, qmibtree_node* node, void*, int32_t, void* writer,
                           uint32_t phase) {
  auto* const to = static_cast<stepwise_writer*>(writer);
  if (is_template(node)) return QMIBTREE_RC_OK;
  if (phase == QMIBTREE_PHASE_LEAVE) return to->leave(node);
  if (node->flags & QMIBTREE_NODE_INSTANCE) {
    const uint32_t rc = to->enter_instance(node);
    to->open = node;
    return rc;
  }
  return node->flags & QMIBTREE_NODE_PARAM ? to->enter_parameter(inst, node) : QMIBTREE_RC_OK;
}

inline uint32_t write_document(qmibtree_inst_t* inst, const char* name, qmibtree_buff_t* buff) {
  const uint32_t rc = qmibtree_buff_dump(buff, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
  if (QMIBTREE_FAILED(rc)) return rc;
  stepwise_writer writer{buff};
  return qmibtree_dump(inst, name, buff, 255, write_step, &writer);
}

}  // namespace plain
