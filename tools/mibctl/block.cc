// From a model's entries to the records that the library reads.
#include <cstddef>
#include <cstring>

#include "model.hh"

namespace mibctl {

namespace {

struct FlagRule {
  uint32_t flag;
  bool (*holds)(const Entry& entry);
};

// A table that cannot be written refuses AddObject: a host's front end reads that off its record.
constexpr FlagRule flag_rules[] = {
    {QMIBTREE_UID_MULTI, [](const Entry& e) { return e.multi; }},
    {QMIBTREE_UID_DYNAMIC, [](const Entry& e) { return e.dynamic; }},
    {QMIBTREE_UID_READONLY,
     [](const Entry& e) { return !e.writable && (e.multi || !e.is_object()); }},
    {QMIBTREE_UID_SAVE_MODIFIED, [](const Entry& e) { return e.save == Save::modified; }},
    {QMIBTREE_UID_NOTIF_DEFAULT, [](const Entry& e) { return e.notify == Notify::by_default; }},
    {QMIBTREE_UID_NOTIF_FORCED, [](const Entry& e) { return e.notify == Notify::forced; }},
    {QMIBTREE_UID_SAVE, [](const Entry& e) { return e.save == Save::always; }},
};

uint32_t flags_of(const Entry& entry) {
  uint32_t flags = 0;
  for (const FlagRule& rule : flag_rules)
    if (rule.holds(entry)) flags |= rule.flag;
  return flags;
}

int32_t uid_of(const Entry& entry) { return static_cast<int32_t>(entry.uid); }

qmibtree_uidinfo_t empty_record(uint32_t uid) {
  qmibtree_uidinfo_t record = {};
  record.uid = uid;
  record.next_uid = -1;
  record.child_uid = -1;
  record.name = "";
  record.type = QMIBTREE_TYPE_OBJECT;
  record.comp = kNoComponent;
  return record;
}

void set_limits(qmibtree_uidinfo_t& record, const Entry& entry) {
  if (entry.type == QMIBTREE_TYPE_INT) {
    record.int_min = static_cast<int32_t>(entry.min);
    record.int_max = static_cast<int32_t>(entry.max);
  } else if (entry.type == QMIBTREE_TYPE_UINT) {
    record.uint_min = static_cast<uint32_t>(entry.min);
    record.uint_max = static_cast<uint32_t>(entry.max);
  } else if (entry.type == QMIBTREE_TYPE_STRING || entry.type == QMIBTREE_TYPE_BASE64) {
    record.max_len = entry.max_len;
  }
}

qmibtree_uidinfo_t record_of(const Entry& entry) {
  qmibtree_uidinfo_t record = empty_record(entry.uid);
  if (!entry.children.empty()) record.child_uid = uid_of(*entry.children.front());
  record.name = entry.name.c_str();
  record.type = entry.type;
  record.flags = flags_of(entry);
  record.arg = entry.arg;
  if (entry.defval) record.defval = entry.defval->c_str();
  set_limits(record, entry);
  record.comp = entry.component;
  return record;
}

std::vector<qmibtree_uidinfo_t> empty_records(const Entry& root) {
  std::vector<qmibtree_uidinfo_t> records;
  for_each(root, [&](const Entry& entry) {
    while (records.size() <= entry.uid)
      records.push_back(empty_record(static_cast<uint32_t>(records.size())));
  });
  return records;
}

}  // namespace

std::vector<qmibtree_uidinfo_t> records_of(const Model& model) {
  const Entry& root = *model.root;
  std::vector<qmibtree_uidinfo_t> records = empty_records(root);
  for_each(root, [&](const Entry& entry) {
    const int32_t next = records[entry.uid].next_uid;  // set with the sibling before it
    records[entry.uid] = record_of(entry);
    records[entry.uid].next_uid = next;
    for (size_t i = 1; i < entry.children.size(); ++i)
      records[entry.children[i - 1]->uid].next_uid = uid_of(*entry.children[i]);
  });
  return records;
}

Block::Block(const Model& model) {
  const std::vector<qmibtree_uidinfo_t> records = records_of(model);
  const uint32_t head[] = {model.tag, static_cast<uint32_t>(records.size())};
  const size_t start = offsetof(qmibtree_schema_t, uidinfo);
  const size_t size = start + records.size() * sizeof records[0];
  words_.resize((size + sizeof words_[0] - 1) / sizeof words_[0]);
  // Copied as bytes: what lies in the words is then records for whoever reads it.
  char* const bytes = reinterpret_cast<char*>(words_.data());
  std::memcpy(bytes, head, sizeof head);
  std::memcpy(bytes + start, records.data(), size - start);
}

}  // namespace mibctl
