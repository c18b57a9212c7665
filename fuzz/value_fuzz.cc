// A text parsed as each type, checked against bounds, copied, compared with a second one and
// rendered, by the type table. Input: the bounds, a text up to a NUL, a second text.
#include <cstdlib>
#include <ctime>
#include <vector>

#include "bytes.hh"
#include "every_size.hh"
#include "plain.hh"

namespace {

struct Parsed {
  qmibtree_value_t value = {};
  const qmibtree_datafn_t* fn;
  uint32_t rc;

  Parsed(uint32_t type, const std::string& text) : fn(qmibtree_datatype_get_datafn(type)) {
    rc = fn->from_str(&value, text.c_str());
  }
  ~Parsed() {
    // Nobody owns the block that base64 was decoded into.
    FUZZ_CHECK(!value.owned);
    if (value.type == QMIBTREE_TYPE_BASE64) qfree(const_cast<uint8_t*>(value.data));
  }
  Parsed(const Parsed&) = delete;
};

bool is_like(const std::string& text, std::string_view form) {  // "9" stands for any digit
  if (text.size() != form.size()) return false;
  for (size_t i = 0; i < form.size(); ++i)
    if (form[i] == '9' ? text[i] < '0' || text[i] > '9' : text[i] != form[i]) return false;
  return true;
}

// The seconds of a text that is a date.
std::optional<int32_t> seconds_of(const std::string& text) {
  if (!is_like(text, "9999-99-99T99:99:99")) return {};
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d", &year, &month, &day, &hour, &minute,
              &second);
  if (year < 1902 || year > 2037 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 ||
      minute > 59 || second > 59)
    return {};
  int64_t days = day - 1;
  for (int64_t y = 1970; y < year; ++y) days += 365 + plain::is_leap(y);
  for (int64_t y = year; y < 1970; ++y) days -= 365 + plain::is_leap(y);
  for (int m = 1; m < month; ++m) days += plain::days_of_month(year, m);
  return static_cast<int32_t>(((days * 24 + hour) * 60 + minute) * 60 + second);
}

void check_parsed(const Parsed& parsed, uint32_t type, const std::string& text) {
  if (type == QMIBTREE_TYPE_DATETIME) {
    FUZZ_CHECK(parsed.rc == QMIBTREE_RC_ERROR && parsed.value.type == type);
    if (const auto seconds = seconds_of(text)) FUZZ_CHECK(parsed.value.t == *seconds);
    return;
  }
  const auto expected = plain::written_text(type, text);
  FUZZ_CHECK(parsed.rc == (expected ? QMIBTREE_RC_OK : QMIBTREE_RC_ERROR));
  FUZZ_CHECK(parsed.value.type == (expected ? type : 0));
  if (expected) FUZZ_CHECK(plain::value_text(parsed.value) == *expected);
}

bool same(const qmibtree_value_t& a, const qmibtree_value_t& b) {
  const bool both_empty = !a.str == !b.str;  // bytes without a block are not bytes of length 0
  return (a.type != QMIBTREE_TYPE_BASE64 || a.len != b.len || a.len != 0 || both_empty) &&
         plain::value_text(a) == plain::value_text(b);
}

void check_copies(const Parsed& parsed) {
  const bool has_storage =
      parsed.value.type == QMIBTREE_TYPE_STRING || parsed.value.type == QMIBTREE_TYPE_BASE64;
  qmibtree_value_t copy = {}, shared = {};
  parsed.fn->assign(&shared, &parsed.value);
  FUZZ_CHECK(shared.type == parsed.value.type && !shared.owned);
  if (has_storage) FUZZ_CHECK(shared.str == parsed.value.str);
  parsed.fn->copy(&copy, &parsed.value);
  const bool empty =
      has_storage &&
      (!parsed.value.str || (parsed.value.type == QMIBTREE_TYPE_BASE64 && parsed.value.len == 0));
  if (has_storage) FUZZ_CHECK(!copy.str == empty);
  if (!empty) {
    FUZZ_CHECK(parsed.fn->equal(&copy, &parsed.value) == 1);
    FUZZ_CHECK(plain::value_text(copy) == plain::value_text(parsed.value));
  }
  FUZZ_CHECK(copy.type == parsed.value.type && copy.owned == (has_storage && !empty));
  if (has_storage && !empty) FUZZ_CHECK(copy.str != parsed.value.str);
  if (parsed.fn->release) parsed.fn->release(&copy);
  if (has_storage) FUZZ_CHECK(!copy.str && !copy.owned);
}

void check_type(uint32_t type, const qmibtree_uidinfo_t& bounds, const std::string& text,
                const std::string& other_text) {
  const Parsed parsed(type, text), other(type, other_text);
  check_parsed(parsed, type, text);
  if (parsed.value.type == 0) return;
  if (parsed.fn->check)
    FUZZ_CHECK(
        parsed.fn->check(&bounds, &parsed.value) ==
        (plain::in_bounds(bounds, parsed.value) ? QMIBTREE_RC_OK : QMIBTREE_RC_OUT_OF_RANGE));
  else
    FUZZ_CHECK(plain::in_bounds(bounds, parsed.value));
  check_copies(parsed);
  if (other.value.type == type)
    FUZZ_CHECK(parsed.fn->equal(&parsed.value, &other.value) == same(parsed.value, other.value));
  const auto render = [&](qmibtree_buff_t* buff) {
    return parsed.fn->to_buff(&parsed.value, buff);
  };
  const std::string rendered = plain::value_text(parsed.value);
  // A base64 value without bytes appends nothing, and so fits into no room at all.
  if (type != QMIBTREE_TYPE_BASE64 || parsed.value.data) check_every_size(rendered, render);
}

void check_datetime(int32_t seconds) {
  qmibtree_value_t value = {};
  value.type = QMIBTREE_TYPE_DATETIME;
  value.t = seconds;
  const qmibtree_datafn_t* const fn = qmibtree_datatype_get_datafn(value.type);
  check_every_size(plain::datetime_text(seconds),
                   [&](qmibtree_buff_t* buff) { return fn->to_buff(&value, buff); });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setenv("TZ", "UTC0", 1);
  tzset();
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes(data, size);
  qmibtree_uidinfo_t bounds = {};
  bounds.int_min = static_cast<int32_t>(bytes.word());
  bounds.int_max = static_cast<int32_t>(bytes.word());
  bounds.uint_min = bytes.word();
  bounds.uint_max = bytes.word();
  bounds.max_len = static_cast<uint32_t>(static_cast<int8_t>(bytes.byte()));
  const std::string text = bytes.text(), other = bytes.text();
  for (uint32_t type = QMIBTREE_TYPE_INT; type <= QMIBTREE_TYPE_BOOL; ++type)
    check_type(type, bounds, text, other);
  check_datetime(bounds.int_min);
  return 0;
}
