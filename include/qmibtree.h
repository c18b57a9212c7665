/* qmibtree: the configuration and status data model of a home gateway, as an
 * in-memory tree of typed parameters kept on flash.
 *
 * One header, plain C (C99 and later, C++11 and later). Read top to bottom:
 * result codes, values and types, schema, instance, find and walk, read and
 * write, events, dumps, persistence, components, processes, log, utilities.
 *
 * Conventions that hold for every function here
 *  - Nothing takes a lock. A tree instance, the component table and everything
 *    reached through them belong to one thread at a time; hosts serialise.
 *  - A pointer argument must be valid unless its comment says that null is
 *    accepted. Texts are NUL-terminated. Nothing keeps a caller's pointer
 *    after it returns unless its comment says so.
 *  - Tree functions answer a result code (QMIBTREE_RC_*): test it with
 *    QMIBTREE_FAILED() or "< 32", never with "== 0", for 1..31 are successes.
 *  - Sizes and lengths are bytes; a text's length does not count its NUL.
 *
 * SPDX-License-Identifier: BSD-2-Clause
 */
#ifndef QMIBTREE_H
#define QMIBTREE_H

#include <pthread.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define QMIBTREE_API __attribute__((visibility("default")))
#define QMIBTREE_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#define QMIBTREE_SENTINEL __attribute__((sentinel))
#define QMIBTREE_EXTENSION __extension__ /* anonymous union, array of open length */
#else
#define QMIBTREE_API
#define QMIBTREE_PRINTF(fmt, args)
#define QMIBTREE_SENTINEL
#define QMIBTREE_EXTENSION
#endif

#ifdef __cplusplus
#define QMIBTREE_DEFAULT_NULL = NULL
extern "C" {
#else
#define QMIBTREE_DEFAULT_NULL
#endif

#if defined(__clang__) && defined(__cplusplus)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wc99-extensions" /* array of open length at a record's end */
#endif

typedef struct qmibtree_inst_t qmibtree_inst_t;
typedef struct qmibtree_node qmibtree_node;
typedef struct qmibtree_uidinfo_t qmibtree_uidinfo_t;
typedef struct qmibtree_schema_t qmibtree_schema_t;
typedef struct qmibtree_value_t qmibtree_value_t;
typedef struct qmibtree_datafn_t qmibtree_datafn_t;
typedef struct qmibtree_buff_t qmibtree_buff_t;
typedef struct qmibtree_hash_t qmibtree_hash_t;
typedef struct qmibtree_notif_entry_t qmibtree_notif_entry_t;
typedef struct qmibtree_notif_t qmibtree_notif_t;
typedef struct qmibtree_xml_load_ctx_t qmibtree_xml_load_ctx_t;
typedef struct qmibtree_comp_t qmibtree_comp_t;
typedef struct qmibtree_comps_t qmibtree_comps_t;
typedef struct qdbg_feat_info_t qdbg_feat_info_t;
typedef struct qdbg_info_t qdbg_info_t;

/* ------------------------------------------------------------------------
 * Result codes
 * ------------------------------------------------------------------------ */

#define QMIBTREE_RC_OK 0u             /* done; 1..31 are successes too */
#define QMIBTREE_RC_ERROR 32u         /* refused, or failed without a code of its own */
#define QMIBTREE_RC_NO_RESOURCE 33u   /* out of a resource; for hosts' hooks */
#define QMIBTREE_RC_DIFFERENT 34u     /* compare: the values differ */
#define QMIBTREE_RC_NO_FILE 35u       /* a configuration file could not be read */
#define QMIBTREE_RC_NOT_FOUND 40u     /* no node has this full name */
#define QMIBTREE_RC_NO_HOOK 50u       /* a dynamic parameter without the hook needed */
#define QMIBTREE_RC_TYPE_MISMATCH 61u /* compare: the types differ */
#define QMIBTREE_RC_OUT_OF_RANGE 70u  /* the value breaks the record's bounds */
#define QMIBTREE_RC_NOT_ALLOWED 71u   /* the write is not allowed, or not a parameter */
#define QMIBTREE_RC_INVALID_VALUE 72u /* the value means nothing here; for hosts' hooks */
#define QMIBTREE_RC_DUMP_EXCEEDED 80u /* the text buffer is full */

/* 1 when `rc` is a failure (32 and above), else 0. */
#define QMIBTREE_FAILED(rc) ((uint32_t)(rc) >= QMIBTREE_RC_ERROR)

/* The constant text of a result code, never null; the caller does not free it.
 *
 * 0..31 "ok", 32 "generic error", 33 "out of resource", 40 "mib name not found",
 * 50 "hook not found", 61 "node type mismatch", 70 "write out of range",
 * 71 "write not allowed", 72 "write invalid value", 80 "dump exceeded";
 * every other code, 34 and 35 among them, "unknown". */
QMIBTREE_API const char* qmibtree_rc_string(uint32_t rc);

/* ------------------------------------------------------------------------
 * Values and types
 * ------------------------------------------------------------------------ */

#define QMIBTREE_TYPE_OBJECT 1u   /* no value */
#define QMIBTREE_TYPE_INT 2u      /* signed 32-bit: v.i */
#define QMIBTREE_TYPE_UINT 3u     /* unsigned 32-bit: v.u */
#define QMIBTREE_TYPE_STRING 4u   /* text: v.str, v.owned */
#define QMIBTREE_TYPE_DATETIME 5u /* seconds since 1970-01-01 00:00:00 UTC: v.t */
#define QMIBTREE_TYPE_BASE64 6u   /* bytes: v.data, v.len, v.owned */
#define QMIBTREE_TYPE_BOOL 7u     /* 0 or 1: v.b */

/* A value: four 32-bit words on a 32-bit target. Declare it zeroed: type 0 is
 * "no value" and has no operations.
 *
 * A value with `owned` 0 refers to storage of somebody else (a caller's text, a
 * node's stored value) and is good for as long as that storage is. Only the
 * `copy` operation sets `owned`; only `release` frees, and only owned storage. */
struct qmibtree_value_t {
  uint32_t type; /* QMIBTREE_TYPE_*; 0 for no value */
  QMIBTREE_EXTENSION union {
    const char* str;     /* string: NUL-terminated text, or null for none. First, so that an
                          * initialiser of {0} clears the payload's whole width */
    const uint8_t* data; /* base64: the decoded bytes, or null for none */
    int32_t i;           /* int */
    uint32_t u;          /* unsignedInt */
    int32_t t;           /* datetime: seconds since the epoch, UTC */
    uint8_t b;           /* bool: 0 or 1; only this byte means anything */
  };
  uint32_t len;  /* base64: number of bytes at `data` */
  uint8_t owned; /* string, base64: 1 when this value frees its storage */
};

/* The operations of one type. A slot is null where the type has nothing to do;
 * test it before the call. The six records and the all-empty one are constants
 * of the library. */
struct qmibtree_datafn_t {
  uint32_t type; /* the type id served; 0 in the empty record */
  /* Shallow copy: `dst` shares the storage of `src`, unowned; int, unsignedInt, bool
   * and datetime: the whole record as it is. Result: no meaning. */
  uint32_t (*assign)(qmibtree_value_t* dst, const qmibtree_value_t* src);
  /* Deep copy: string and base64 get owned storage. 1 when storage was made, else
   * 0; out of memory leaves `dst` typed and empty. `dst` gets this type; of int,
   * unsignedInt, bool and datetime the whole record is copied, its type included. */
  uint32_t (*copy)(qmibtree_value_t* dst, const qmibtree_value_t* src);
  /* 1 when the payloads are equal, else 0. Types are not looked at: compare them first. */
  int (*equal)(const qmibtree_value_t* a, const qmibtree_value_t* b);
  /* Range or length check against a record's bounds: 0 or QMIBTREE_RC_OUT_OF_RANGE. */
  uint32_t (*check)(const qmibtree_uidinfo_t* schema, const qmibtree_value_t* value);
  /* Parse. 0, or QMIBTREE_RC_ERROR for an unknown bool word (`dst` unchanged) and
   * for every datetime text (`dst` then holds the time all the same). Numbers beyond
   * 32 bits are taken modulo 2^32. A string keeps pointing at `text`; a base64 value
   * at a new block that is not marked owned, so that `release` does not free it. */
  uint32_t (*from_str)(qmibtree_value_t* dst, const char* text);
  /* Render: append to `buff`. 0, QMIBTREE_RC_DUMP_EXCEEDED, or QMIBTREE_RC_ERROR
   * for a datetime that has no calendar form. */
  uint32_t (*to_buff)(const qmibtree_value_t* value, qmibtree_buff_t* buff);
  /* Free owned storage and clear the payload; the type stays. */
  void (*release)(qmibtree_value_t* value);
};

/* The operations record of a type id: int, uint, string (also for 8, 9 and 10),
 * datetime, base64, bool; the empty record for every other id. Never null. */
QMIBTREE_API const qmibtree_datafn_t* qmibtree_datatype_get_datafn(uint32_t type);

/* The name of a type id: "object", "int", "unsignedInt", "string" (4, 8, 9, 10),
 * "datetime", "base64", "bool", else "unkown" (spelt so). Constant, never null. */
QMIBTREE_API const char* qmibtree_datatype_get_type_str(uint32_t type);

/* A bounded text buffer. Zero the record for counting mode: nothing is written
 * and `size` adds up the bytes that would have been. For writing, point `start`
 * and `pos` at the storage and set `size` and `left` to its size, NUL included. */
struct qmibtree_buff_t {
  char* start;   /* first byte of the text */
  char* pos;     /* where the next text goes; null: counting mode */
  uint32_t size; /* writing: capacity, NUL included; counting: bytes so far, no NUL */
  uint32_t left; /* bytes free at `pos`, NUL included */
};

/* Append formatted text.
 *
 * 0 when it fitted with its NUL. QMIBTREE_RC_DUMP_EXCEEDED when not: `pos` and
 * `left` stay, and the part that fitted stands at `pos`, NUL-terminated (nothing
 * at all when `left` was 0). Counting mode always answers 0. */
QMIBTREE_API uint32_t qmibtree_buff_dump(qmibtree_buff_t* buff, const char* format, ...)
    QMIBTREE_PRINTF(2, 3);

/* Encode `len` bytes as base64 (standard alphabet, "=" padding, one line).
 *
 * A new NUL-terminated text, "" for no bytes; the caller frees it with qfree.
 * Null when memory is exhausted. `bytes` may be null when `len` is 0. */
QMIBTREE_API char* base64_encode(const void* bytes, uint32_t len);

/* Decode base64 text, group by group of four characters, to the text's end;
 * padding does not end the decoding. No other character is skipped, white space
 * included.
 *
 * A new block of the decoded bytes with a NUL behind them, their count (without
 * the NUL) in `*len`; the caller frees it with qfree. Null with `*len` 0 when a
 * character is invalid, the length is not a multiple of four, or memory is
 * exhausted. The empty text gives a block, with `*len` 0. */
QMIBTREE_API uint8_t* base64_decode(const char* text, uint32_t* len);

/* ------------------------------------------------------------------------
 * Schema: what the host describes
 * ------------------------------------------------------------------------ */

/* Hooks run on the thread that called into the tree. A result of 32 or more is a
 * failure, except that the results of create_fn and destroy_fn are ignored. The
 * value that set_fn is handed is the writer's: look, do not change. A hook may call
 * into the tree, but must not delete the node it is given or one above it, nor let
 * mibtree_changed_callback2 do so for a write that the hook makes. A value that refers
 * to the node's own text does not outlive a write that set_fn makes. */
typedef uint32_t (*qmibtree_node_fn_t)(qmibtree_inst_t* inst, qmibtree_node* node);
typedef uint32_t (*qmibtree_set_fn_t)(qmibtree_inst_t* inst, qmibtree_node* node,
                                      qmibtree_value_t* value);
typedef uint32_t (*qmibtree_get_fn_t)(qmibtree_inst_t* inst, qmibtree_node* node,
                                      qmibtree_value_t* value, uint32_t flags);

/* Flags of a schema record (qmibtree_uidinfo_t.flags). */
#define QMIBTREE_UID_MULTI 0x1u          /* multi-instance object: its node is a template */
#define QMIBTREE_UID_DYNAMIC 0x2u        /* the host owns the value: every read asks get_fn */
#define QMIBTREE_UID_READONLY 0x10u      /* refuses every external write */
#define QMIBTREE_UID_SAVE_MODIFIED 0x20u /* saved while it differs from its default */
#define QMIBTREE_UID_NOTIF_DEFAULT 0x80u /* starts with active notification */
#define QMIBTREE_UID_NOTIF_FORCED 0x100u /* starts so, and its events are always active */
#define QMIBTREE_UID_SAVE 0x200u         /* always saved */

/* One schema record: 28 consecutive 32-bit words on a 32-bit target; the same
 * fields in the same order with native pointers elsewhere. The library uses the
 * host's record in place, never a copy, and writes to it only in
 * qmibtree_reg_uidinfo. Every pointer in it stays the host's and must live as
 * long as the instance; `name` and `type` must not change meanwhile. */
struct qmibtree_uidinfo_t {
  uint32_t uid;       /* the record's unique id: its index in the schema; below 2000 */
  int32_t next_uid;   /* next sibling's unique id; negative or past the end: none */
  int32_t child_uid;  /* first child's unique id; same rule */
  const char* name;   /* name segment; objects carry their own trailing dot */
  uint32_t reserved1; /* the host's; never read */
  uint32_t type;      /* 2..7 (QMIBTREE_TYPE_INT..BOOL) a parameter; all else an object */
  uint32_t flags;     /* QMIBTREE_UID_* */
  uint32_t arg;       /* the host's word, copied into each node of this record */
  const char* defval; /* default value as text, or null: get_fn supplies it, else none. For
                       * base64 each node built leaves a decoded block that nobody frees */
  uint32_t max_len;   /* string, base64: longest value in bytes; 0, or negative as signed: any */
  int32_t int_min;    /* int: lowest value allowed (both bounds 0 admit only 0) */
  int32_t int_max;    /* int: highest */
  uint32_t uint_min;  /* unsignedInt: lowest (both bounds 0 admit only 0) */
  uint32_t uint_max;  /* unsignedInt: highest */
  uint32_t reserved2; /* the host's; never read */
  uint32_t comp;      /* id 0..31 of the owning component; 32 and above: none */
  qmibtree_node_fn_t create_fn;  /* a node was made and indexed (before it has its value and
                                  * children); never for a template. May be null */
  qmibtree_node_fn_t destroy_fn; /* a node is about to go, its children were told first; never
                                  * for a template. May be null */
  qmibtree_set_fn_t set_fn;      /* told of a new value before it is stored; may refuse it */
  qmibtree_get_fn_t get_fn;      /* fills a zeroed value; with flags 0 while a node without
                                  * `defval` is built, later with the reader's flags */
  void* ext_fn[8];               /* the host's words; filled by qmibtree_reg_uidinfo, never
                                  * called */
};

/* The schema: one contiguous block that the host keeps alive, unmoved, for the
 * instance's whole life. Record 0 is the root. At most 2000 records: unique ids
 * of 2000 and above would share index buckets with lower ones. */
struct qmibtree_schema_t {
  uint32_t schema_tag;                             /* the host's word, copied into the instance */
  uint32_t uidinfo_num;                            /* number of records that follow */
  QMIBTREE_EXTENSION qmibtree_uidinfo_t uidinfo[]; /* the records, in the order of their ids */
};

/* A schema block of exactly `n` records, as a type to define a static object of:
 *
 *   static QMIBTREE_SCHEMA_BLOCK(2) block = {1, 2, {{...}, {...}}};
 *   inst = qmibtree_init(QMIBTREE_SCHEMA(&block)); */
#define QMIBTREE_SCHEMA_BLOCK(n)   \
  struct {                         \
    uint32_t schema_tag;           \
    uint32_t uidinfo_num;          \
    qmibtree_uidinfo_t uidinfo[n]; \
  }
#define QMIBTREE_SCHEMA(block) ((qmibtree_schema_t*)(void*)(block))

/* ------------------------------------------------------------------------
 * Nodes, indexes, the instance
 * ------------------------------------------------------------------------ */

/* Flags of a node (qmibtree_node.flags). */
#define QMIBTREE_NODE_INSTANCE 0x1u        /* an instance, named by its number */
#define QMIBTREE_NODE_MODIFIED 0x2u        /* the last write's value differed from default_value */
#define QMIBTREE_NODE_PARAM 0x4u           /* a parameter: has a value, no children */
#define QMIBTREE_NODE_NOTIF_ACTIVE 0x100u  /* notification: at most one of these two; */
#define QMIBTREE_NODE_NOTIF_PASSIVE 0x200u /* neither is off */
#define QMIBTREE_NODE_ACCESS 0x400u        /* the access list holds "subscriber" */

/* One node. Hosts read it; only the library writes it (a create_fn may change the
 * NOTIF and ACCESS bits of `flags`, any hook `arg`). Good until the node is destroyed.
 *
 * Kinds: a parameter has QMIBTREE_NODE_PARAM. A template is an object whose record
 * has QMIBTREE_UID_MULTI and that lacks QMIBTREE_NODE_INSTANCE: the {i} of the
 * data model; its children are its instances and nothing else. An instance is
 * built from its template's own record and so shares its unique id. */
struct qmibtree_node {
  uint32_t hash;                  /* BKDRHash of fullName */
  qmibtree_node* name_next;       /* next in the same full-name bucket */
  qmibtree_node* uid_next;        /* next in the same unique-id bucket */
  qmibtree_inst_t* inst;          /* the tree it is in */
  qmibtree_node* parent;          /* null for the root */
  qmibtree_node* next;            /* next sibling, or null */
  uint32_t instance;              /* instance number; 0 unless an instance */
  qmibtree_uidinfo_t* uidinfo;    /* its schema record, in the host's block */
  uint32_t arg;                   /* copied from the record */
  uint32_t flags;                 /* QMIBTREE_NODE_* */
  const char* name;               /* own segment: the record's, or "%d." of the instance number
                                   * cut to four characters, so without a dot from 1000 on */
  const char* fullName;           /* the parent's fullName and `name`; the library's storage */
  uint32_t last_instance;         /* template: highest number in use or handed out */
  uint32_t reserved;              /* 0 */
  uint32_t added;                 /* template: additions that got as far as a number */
  uint32_t deleted;               /* template: instances removed by qmibtree_del_object */
  uint32_t childnum;              /* number of children */
  qmibtree_node* first_child;     /* children in the order they were made */
  qmibtree_node* last_child;      /* the one made last */
  qmibtree_value_t value;         /* the current value (parameters) */
  qmibtree_value_t default_value; /* the value the node was built with */
  uint32_t right;                 /* given when an instance was added; else 255 */
};

/* An index over nodes, chained through the nodes themselves: an entry needs no
 * memory of its own. */
struct qmibtree_hash_t {
  uint32_t kind; /* 0 full names (chains by name_next), 1 unique ids (uid_next) */
  uint32_t size; /* number of buckets */
  QMIBTREE_EXTENSION qmibtree_node* buckets[]; /* the newest node of each chain, or null */
};

/* The tree. Hosts read it; only the library writes it. */
struct qmibtree_inst_t {
  uint32_t schema_tag;         /* from the schema */
  qmibtree_node* root;         /* built from unique id 0; null while it is being built */
  qmibtree_hash_t* name_hash;  /* full-name index, 5000 buckets */
  qmibtree_hash_t* uid_hash;   /* unique-id index, 2000 buckets; null if it could not be
                                * made, and operations by unique id then find nothing */
  qmibtree_notif_t* notif;     /* change events not yet drained */
  uint32_t obj_changes;        /* counts every addition and deletion of an instance */
  uint32_t uidinfo_num;        /* from the schema */
  qmibtree_uidinfo_t* uidinfo; /* record 0 of the host's block */
};

/* Build the tree that `schema` describes, with every default value and hook.
 *
 * The block stays the host's and must outlive the instance. The caller destroys
 * the instance with qmibtree_destroy. Null when memory is exhausted, there is no
 * record 0, or a get_fn refused while a parameter was built; nothing is left
 * behind then. But a tree is answered also where there was no memory for `uid_hash`
 * or for a default's text or bytes. The sibling and child links must form a tree. */
QMIBTREE_API qmibtree_inst_t* qmibtree_init(qmibtree_schema_t* schema);

/* Destroy the tree, children first, with every destroy_fn, and free all it owns.
 * Every node, and every value that shares a node's storage, is gone. Always 0. */
QMIBTREE_API uint32_t qmibtree_destroy(qmibtree_inst_t* inst);

/* Attach behaviour to the record of `uid` after the schema was built.
 *
 * The record's `flags` become those of `record`, always. Each of create_fn,
 * destroy_fn, set_fn, get_fn and the eight ext_fn words is taken over only where
 * the schema's is null and `record`'s is not: the first registration wins. All
 * else in `record` is ignored, and `record` may go afterwards. Nodes that exist
 * see the new hooks from their next use on; their own flags stay. Not to be called
 * by a hook of a node of that record.
 * 0, also for a `uid` without a record (nothing changes then); QMIBTREE_RC_ERROR
 * when `inst` or `record` is null. */
QMIBTREE_API uint32_t qmibtree_reg_uidinfo(qmibtree_inst_t* inst, int32_t uid,
                                           const qmibtree_uidinfo_t* record);

/* The schema record of `uid`, or null when it is negative or not below the
 * schema's number of records. */
QMIBTREE_API qmibtree_uidinfo_t* find_uidinfo_from_uid(qmibtree_inst_t* inst, int32_t uid);

/* Build the whole initial tree into an instance that has its indexes and queue.
 * The root, which the caller stores; null on failure, with nothing left behind.
 * qmibtree_init does this; a host has no need to. */
QMIBTREE_API qmibtree_node* qmibtree_populate_root(qmibtree_inst_t* inst);

/* Build one node from `record` as the last child of `parent` (null for a root),
 * and below it what its record lists; a template's children are not built.
 * Below a template the new node is an instance numbered last_instance. `right`
 * goes into the node. The node, owned by the tree; null on failure, with nothing
 * left behind. Hosts add instances with qmibtree_add_object instead. */
QMIBTREE_API qmibtree_node* qmibtree_build_node(qmibtree_inst_t* inst, qmibtree_node* parent,
                                                qmibtree_uidinfo_t* record, uint32_t right);

/* Remove a node and all below it: destroy_fn hooks first, children before their
 * parent, then unlinking and freeing. Their queued events go by the rule of
 * qmibtree_notif_del_event. Always 0. Hosts delete instances with
 * qmibtree_del_object instead. */
QMIBTREE_API uint32_t qmibtree_destroy_node(qmibtree_inst_t* inst, qmibtree_node* node);

/* Hash of a text: h = h * 131 + c over its bytes taken as signed, modulo 2^32,
 * then the low 31 bits. "" gives 0. */
QMIBTREE_API uint32_t BKDRHash(const char* str);

/* A new empty index of `size` buckets, freed with qmibtree_hash_destroy; null when
 * memory is exhausted or `size` is 0. `kind` is only stored. */
QMIBTREE_API qmibtree_hash_t* qmibtree_hash_create(uint32_t kind, uint32_t size);

/* Free an index; null is accepted. Nodes are not touched. */
QMIBTREE_API void qmibtree_hash_destroy(qmibtree_hash_t* hash);

/* Link `node` at the head of its full-name chain and store its hash in it.
 * The hash of its full name. */
QMIBTREE_API uint32_t qmibtree_hash_link_name(qmibtree_hash_t* hash, qmibtree_node* node);

/* Take `node` out of its full-name chain, if it is in it, and clear its link. */
QMIBTREE_API void qmibtree_hash_unlink_name(qmibtree_hash_t* hash, qmibtree_node* node);

/* The node of this full name (the newest where two share it), or null. */
QMIBTREE_API qmibtree_node* qmibtree_hash_lookup_name(qmibtree_hash_t* hash, const char* fullName);

/* Link `node` at the head of its unique-id chain. Null `hash`: nothing. */
QMIBTREE_API void qmibtree_hash_link_uid(qmibtree_hash_t* hash, qmibtree_node* node);

/* Take `node` out of its unique-id chain, if it is in it, and clear its link.
 * Null `hash`: only the link is cleared. */
QMIBTREE_API void qmibtree_hash_unlink_uid(qmibtree_hash_t* hash, qmibtree_node* node);

/* The newest node of `uid`, or null. Only the head of the bucket (uid modulo
 * size) is looked at: with ids of 2000 and above a lower id can hide. Null
 * `hash`: null. */
QMIBTREE_API qmibtree_node* qmibtree_hash_lookup_uid(qmibtree_hash_t* hash, uint32_t uid);

/* The next older node of `uid` behind `node`, or null. */
QMIBTREE_API qmibtree_node* qmibtree_hash_lookup_uid_next(qmibtree_node* node, uint32_t uid);

/* ------------------------------------------------------------------------
 * Find, walk, add and delete
 *
 * A function that takes a full name and answers a result code answers
 * QMIBTREE_RC_NOT_FOUND for a name that no node has, unless its comment says
 * otherwise. A `_v2` form takes the name in two pieces, for instance an
 * object's full name and a parameter's, and uses their first 511 characters.
 * ------------------------------------------------------------------------ */

/* Callback of qmibtree_loop and qmibtree_lookup; 32 or more stops the walk. */
typedef uint32_t (*qmibtree_walk_fn_t)(qmibtree_inst_t* inst, qmibtree_node* node, void* arg);

#define QMIBTREE_PHASE_ENTER 1u /* before the node's children */
#define QMIBTREE_PHASE_LEAVE 2u /* after them */

/* Callback of qmibtree_dump: `ctx` and `arg` are the caller's, `level` is the depth
 * below the start node (0 for it), `phase` a QMIBTREE_PHASE_*. 32 or more stops. */
typedef uint32_t (*qmibtree_dump_fn_t)(qmibtree_inst_t* inst, qmibtree_node* node, void* ctx,
                                       int32_t level, void* arg, uint32_t phase);

/* One step of qmibtree_load: 1 asks for another call. The last argument is 0. */
typedef uint32_t (*qmibtree_load_fn_t)(void* a, void* b, void* c, uint32_t zero);

/* The node of this full name, or null. */
QMIBTREE_API qmibtree_node* qmibtree_find_node_by_name(qmibtree_inst_t* inst, const char* name);
QMIBTREE_API qmibtree_node* qmibtree_find_node_by_name_v2(qmibtree_inst_t* inst, const char* prefix,
                                                          const char* suffix);

/* The node's `arg` word; 0 when there is no such node. */
QMIBTREE_API uint32_t qmibtree_get_arg(qmibtree_inst_t* inst, const char* name);
QMIBTREE_API uint32_t qmibtree_get_arg_v2(qmibtree_inst_t* inst, const char* prefix,
                                          const char* suffix);

/* The node's number of children, for a template its number of instances; -1 when
 * there is no such node. */
QMIBTREE_API int32_t qmibtree_get_childnum(qmibtree_inst_t* inst, const char* name);

/* Call `fn` for the nodes of a unique id, newest first, templates left out: for all
 * of them when `name` is null, else only for those of that full name. `fn` may
 * delete the node it is given, but no other of this id.
 * The last callback's result; 0 when none was called. */
QMIBTREE_API uint32_t qmibtree_lookup(qmibtree_inst_t* inst, const char* name, uint32_t uid,
                                      qmibtree_walk_fn_t fn, void* arg);

/* Call `fn` for each direct child of an object, first to last; null `name`: the
 * root's. `fn` must not delete the node it is given or its next sibling.
 * The last callback's result, 0 without children; QMIBTREE_RC_ERROR for a
 * parameter. */
QMIBTREE_API uint32_t qmibtree_loop(qmibtree_inst_t* inst, const char* name, qmibtree_walk_fn_t fn,
                                    void* arg);
QMIBTREE_API uint32_t qmibtree_loop_v2(qmibtree_inst_t* inst, const char* prefix,
                                       const char* suffix, qmibtree_walk_fn_t fn, void* arg);
QMIBTREE_API uint32_t qmibtree_loop_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                            qmibtree_walk_fn_t fn, void* arg);

/* Walk a subtree depth first: `fn` on entering and on leaving each node, at most
 * `depth` levels (1: the start node alone; 0 or less: nothing, 0). Null `name`:
 * from the root. `fn` must not delete the node it is given or its next sibling.
 * The start node's last result, or the first result of 32 or more, which ends
 * the walk at once: no leave calls follow, not even for the nodes above. */
QMIBTREE_API uint32_t qmibtree_dump(qmibtree_inst_t* inst, const char* name, void* ctx,
                                    int32_t depth, qmibtree_dump_fn_t fn, void* arg);
/* The same from a node; `level` is the number given for it. */
QMIBTREE_API uint32_t qmibtree_dump_by_node(qmibtree_inst_t* inst, qmibtree_node* node, void* ctx,
                                            int32_t depth, int32_t level, qmibtree_dump_fn_t fn,
                                            void* arg);

/* Add an instance to a template.
 *
 * `*instance` is a wished number or 0 in, the assigned number out, also where a
 * create_fn added further instances to the template meanwhile. The number
 * is the template's last_instance + 1, or the wish where that is higher; a lower
 * free number is not honoured. `opt` is ignored. `right` is stored in the
 * instance; 255 is neutral. Counts in obj_changes and the template's `added`.
 * 0; QMIBTREE_RC_ERROR when the node is not a template, the wished number is in
 * use, `instance` is null (nothing changes), or the instance could not be built
 * (the counters stay counted). */
QMIBTREE_API uint32_t qmibtree_add_object(qmibtree_inst_t* inst, const char* name,
                                          uint32_t* instance, uint32_t opt, uint32_t right);
QMIBTREE_API uint32_t qmibtree_add_object_by_node(qmibtree_inst_t* inst,
                                                  qmibtree_node* template_node, uint32_t* instance,
                                                  uint32_t opt, uint32_t right);

/* Delete an instance and all below it. `opt` is ignored. The template's
 * last_instance becomes the highest number left, so the highest instance's number
 * is handed out again. Events of the nodes that go are dropped by the rule of
 * qmibtree_notif_del_event. 0; QMIBTREE_RC_ERROR when the node is not an instance. */
QMIBTREE_API uint32_t qmibtree_del_object(qmibtree_inst_t* inst, const char* name, uint32_t opt);
QMIBTREE_API uint32_t qmibtree_del_object_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                                  uint32_t opt);

/* Call step(a, b, c, 0) again for as long as it answers exactly 1; its first other
 * result. For loaders that work in slices; the library reads none of the words. */
QMIBTREE_API uint32_t qmibtree_load(void* a, void* b, qmibtree_load_fn_t step, void* c);

/* ------------------------------------------------------------------------
 * Read, write, compare, attributes
 * ------------------------------------------------------------------------ */

/* Flags of a write. Any of the three makes it external: it marks the owning
 * component and QMIBTREE_UID_READONLY refuses it. 0 is an internal refresh. */
#define QMIBTREE_WRITE_NOEVENT 0x4u    /* queue no change event */
#define QMIBTREE_WRITE_SUBSCRIBER 0x8u /* for a subscriber: needs QMIBTREE_NODE_ACCESS */
#define QMIBTREE_WRITE_APPLY 0x10u     /* external, no further condition */

/* Attributes of a node, as qmibtree_set_attr takes and qmibtree_get_attr gives them. */
#define QMIBTREE_ATTR_NOTIF_ACTIVE 0x1u      /* changes are queued, to be reported actively */
#define QMIBTREE_ATTR_NOTIF_PASSIVE 0x2u     /* changes are queued */
#define QMIBTREE_ATTR_NOTIF_OFF 0x4u         /* changes are not queued, but for a forced record's */
#define QMIBTREE_ATTR_ACCESS_SUBSCRIBER 0x8u /* the access list holds "subscriber" */
#define QMIBTREE_ATTR_ACCESS_NONE 0x10u      /* the access list is empty */

/* Supplied by the host: called after each write of a value other than the node's.
 * `node` holds what was stored of it already; `value` is the writer's. The result is
 * ignored. It may call into the tree, and may delete the instance that `node` is
 * in unless a hook of a node there made the write. A host of the tree that lacks this
 * function does not link. */
extern uint32_t mibtree_changed_callback2(qmibtree_inst_t* inst, qmibtree_node* node,
                                          qmibtree_value_t* value);

/* Read a parameter into the caller's zeroed `value`.
 *
 * A stored value is shared, not copied: its text or bytes stay the node's, good
 * until the node's next write or its end; nothing need be released. A dynamic
 * parameter is read with its get_fn, which gets `flags` and says who owns what.
 * 0, or what get_fn answered; QMIBTREE_RC_NO_HOOK for a dynamic parameter without
 * get_fn (`value` untouched). An object gives 0 and no value, unless a write put one
 * there; one whose record is dynamic is read as a parameter is. */
QMIBTREE_API uint32_t qmibtree_read(qmibtree_inst_t* inst, const char* name,
                                    qmibtree_value_t* value, uint32_t flags);
QMIBTREE_API uint32_t qmibtree_read_v2(qmibtree_inst_t* inst, const char* prefix,
                                       const char* suffix, qmibtree_value_t* value, uint32_t flags);
QMIBTREE_API uint32_t qmibtree_read_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                            qmibtree_value_t* value, uint32_t flags);

/* Write `value` to a parameter, with everything a write sets off: in this order the
 * access rule, the bounds, set_fn, the MODIFIED flag, and, where the value is a
 * new one, the component's mark, the change event, the store and the host's
 * callback.
 *
 * The node keeps its own deep copy; `value` and its storage stay the caller's.
 * `flags`: 0 for an internal refresh, else QMIBTREE_WRITE_* bits (external write).
 * The value's type is not compared with the record's: it chooses which bounds of the
 * record count, it is stored as it comes, and nothing is stored for one without
 * operations (0 among them), though the rest of the write goes on. Nor is the node
 * asked whether it is a parameter: an object's takes a value like any other.
 * Below 32 on success. QMIBTREE_RC_NOT_ALLOWED, QMIBTREE_RC_OUT_OF_RANGE or what
 * set_fn answered when refused, with nothing changed. QMIBTREE_RC_NO_HOOK means
 * stored, on a dynamic parameter without set_fn. When memory runs out the
 * value is left empty and the write still succeeds. */
QMIBTREE_API uint32_t qmibtree_write(qmibtree_inst_t* inst, const char* name,
                                     const qmibtree_value_t* value, uint32_t flags);
QMIBTREE_API uint32_t qmibtree_write_v2(qmibtree_inst_t* inst, const char* prefix,
                                        const char* suffix, const qmibtree_value_t* value,
                                        uint32_t flags);
QMIBTREE_API uint32_t qmibtree_write_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                             const qmibtree_value_t* value, uint32_t flags);

/* Parse `text` as the record's type and write it, as qmibtree_write does: a text that
 * cannot be parsed is refused before the access rule is asked.
 *
 * Further results: QMIBTREE_RC_NOT_ALLOWED for a node that is not a parameter (the
 * form by node stores nothing there, but for a record of type 8 to 10, where it stores
 * the text, and sets off the rest); QMIBTREE_RC_ERROR for an
 * unknown bool word and for every datetime text: write datetimes with
 * qmibtree_write. Text is never refused for int, unsignedInt, string and base64.
 * For base64 the decoded block is freed by nobody: hosts that write base64 often
 * use qmibtree_write. */
QMIBTREE_API uint32_t qmibtree_write_strvalue(qmibtree_inst_t* inst, const char* name,
                                              const char* text, uint32_t flags);
QMIBTREE_API uint32_t qmibtree_write_strvalue_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                                      const char* text, uint32_t flags);

/* Write `text` to every node of a unique id, newest first, and stop at the first
 * result above 31. The host's callback may delete the node just written, but no
 * other of this id. The last result; 0 when the id has no node. */
QMIBTREE_API uint32_t qmibtree_write_strvalue_by_uniqueid(qmibtree_inst_t* inst, uint32_t uid,
                                                          const char* text, uint32_t flags);

/* Compare a parameter's current value, read with `flags`, with `value`.
 * 0 equal; QMIBTREE_RC_DIFFERENT; QMIBTREE_RC_TYPE_MISMATCH; QMIBTREE_RC_NO_HOOK
 * when the type cannot be compared; or the read's failure. */
QMIBTREE_API uint32_t qmibtree_compare(qmibtree_inst_t* inst, const char* name,
                                       const qmibtree_value_t* value, uint32_t flags);
QMIBTREE_API uint32_t qmibtree_compare_v2(qmibtree_inst_t* inst, const char* prefix,
                                          const char* suffix, const qmibtree_value_t* value,
                                          uint32_t flags);
QMIBTREE_API uint32_t qmibtree_compare_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                               const qmibtree_value_t* value, uint32_t flags);

/* Set attributes. Of the NOTIF bits the first in the order ACTIVE, PASSIVE, OFF
 * counts, of the ACCESS bits SUBSCRIBER before NONE; without a bit of a group
 * that group stays. Always 0 for a node that exists. */
QMIBTREE_API uint32_t qmibtree_set_attr(qmibtree_inst_t* inst, const char* name, uint32_t attr);
QMIBTREE_API uint32_t qmibtree_set_attr_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                                uint32_t attr);

/* Get the attributes: exactly one NOTIF and one ACCESS bit in `*attr`. Always 0 for
 * a node that exists. */
QMIBTREE_API uint32_t qmibtree_get_attr(qmibtree_inst_t* inst, const char* name, uint32_t* attr);
QMIBTREE_API uint32_t qmibtree_get_attr_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                                uint32_t* attr);

/* ------------------------------------------------------------------------
 * Change events
 * ------------------------------------------------------------------------ */

#define QMIBTREE_NOTIF_MAX 100 /* events that a queue holds */

/* One change event. */
struct qmibtree_notif_entry_t {
  qmibtree_node* node; /* what changed; the tree's (but see qmibtree_notif_del_event) */
  uint8_t active;      /* 1: to be reported actively */
};

/* The queue of change events: entries 0..num-1 are live, the newest last unless
 * qmibtree_notif_del_event dropped another. */
struct qmibtree_notif_t {
  qmibtree_notif_entry_t entries[QMIBTREE_NOTIF_MAX]; /* the live ones, oldest first */
  uint32_t active_num;                                /* counts entries queued as active */
  uint32_t num;                                       /* live entries */
};

/* Queue a change event for a node, by qmibtree_notif_add_event. `arg` is ignored.
 * 0 whether or not one was queued. */
QMIBTREE_API uint32_t qmibtree_notify(qmibtree_inst_t* inst, const char* name, uint32_t arg);
QMIBTREE_API uint32_t qmibtree_notify_v2(qmibtree_inst_t* inst, const char* prefix,
                                         const char* suffix, uint32_t arg);
QMIBTREE_API uint32_t qmibtree_notify_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                              uint32_t arg);

/* A new empty queue, freed with qmibtree_notif_destroy; null when memory is
 * exhausted. An instance has its own, inst->notif. */
QMIBTREE_API qmibtree_notif_t* qmibtree_notif_create(void);

/* Free a queue; null is accepted. Nodes are not touched. */
QMIBTREE_API void qmibtree_notif_destroy(qmibtree_notif_t* queue);

/* Empty the queue. */
QMIBTREE_API void qmibtree_notif_cleanup(qmibtree_notif_t* queue);

/* Queue an event for a node with notification on (or forced by its record), unless
 * it has one already. An event in a full queue is lost, silently. */
QMIBTREE_API void qmibtree_notif_add_event(qmibtree_notif_t* queue, qmibtree_node* node);

/* Drop a node's event. The slot is filled with whatever the slot past the last live one
 * still holds: dropping the newest event is a plain removal; dropping an earlier one
 * drops the newest with it and brings back an event that was removed before, maybe of
 * a node that is gone, or a null node where nothing ever was. Drain before deleting
 * instances: an empty queue has nothing to drop. Where an event was dropped all the
 * same, call qmibtree_notif_cleanup. */
QMIBTREE_API void qmibtree_notif_del_event(qmibtree_notif_t* queue, qmibtree_node* node);

/* The node of entry `index`, which stays queued, or null past the last. A live entry
 * can be null too (qmibtree_notif_del_event): count by `num`. */
QMIBTREE_API qmibtree_node* qmibtree_notif_get_event(qmibtree_notif_t* queue, uint32_t index);

/* Remove the newest event; its node, or null when the queue is empty. A live entry can
 * be null too (qmibtree_notif_del_event): drain while `num` is not 0. */
QMIBTREE_API qmibtree_node* qmibtree_notif_deq_event(qmibtree_notif_t* queue);

/* Both of these drop the event of the node of this full name, by
 * qmibtree_notif_del_event; "add" queues nothing. An unknown name is ignored. To
 * queue an event by name use qmibtree_notify. */
QMIBTREE_API void qmibtree_notif_add_event_by_name(qmibtree_inst_t* inst, const char* name);
QMIBTREE_API void qmibtree_notif_del_event_by_name(qmibtree_inst_t* inst, const char* name);

/* ------------------------------------------------------------------------
 * Debug dumps: callbacks for qmibtree_dump
 *
 * `buff` is the walk's ctx, a qmibtree_buff_t. To size a dump, walk once with a
 * zeroed record, then into storage of `size` + 1 bytes.
 * ------------------------------------------------------------------------ */

/* The listing: a line feed and `level` blanks, then "+" and the full name of an
 * object ("{i}." behind a template's), or "name (type) = value" of a parameter.
 * 0; QMIBTREE_RC_DUMP_EXCEEDED; or what a parameter's read failed with, which ends
 * the walk there: QMIBTREE_RC_NO_HOOK for a dynamic one without get_fn. */
QMIBTREE_API uint32_t qmibtree_dump_dbg(qmibtree_inst_t* inst, qmibtree_node* node, void* buff,
                                        int32_t level, void* arg, uint32_t phase);

/* Counts nodes, on leaving: `counter` points at a uint32_t, the walk's arg. */
QMIBTREE_API uint32_t qmibtree_dump_calc_node_num(qmibtree_inst_t* inst, qmibtree_node* node,
                                                  void* buff, int32_t level, void* counter,
                                                  uint32_t phase);

/* On entering, the name of the node's schema type. */
QMIBTREE_API uint32_t qmibtree_dump_rawtype(qmibtree_inst_t* inst, qmibtree_node* node, void* buff,
                                            int32_t level, void* arg, uint32_t phase);

/* On entering, the value as text, read with `phase` as the read's flags; nothing
 * for an object that qmibtree_read finds no value in. What a get_fn hands over is not
 * released: it must stay the host's. */
QMIBTREE_API uint32_t qmibtree_dump_rawvalue(qmibtree_inst_t* inst, qmibtree_node* node, void* buff,
                                             int32_t level, void* arg, uint32_t phase);

/* Appends "-", the placeholder of a dynamic attribute, unless `phase` has bit 2. The
 * other arguments are not looked at. Not a walk callback. */
QMIBTREE_API uint32_t qmibtree_dump_rawdynattr(qmibtree_inst_t* inst, qmibtree_buff_t* buff,
                                               int32_t level, void* arg, uint32_t phase);

/* Callback for qmibtree_lookup: prints "\n[lookup dbg]: " and the full name on
 * standard output. 0. `arg` is not looked at. */
QMIBTREE_API uint32_t qmibtree_lookup_dbg(qmibtree_inst_t* inst, qmibtree_node* node,
                                          void* arg QMIBTREE_DEFAULT_NULL);

/* ------------------------------------------------------------------------
 * Persistence
 * ------------------------------------------------------------------------ */

/* Write the buffer's text (strlen(start) bytes) to a file or device at byte
 * `offset`. The path is opened with mode "w": a regular file is emptied first and,
 * if any text follows, gets a hole before `offset`; a character device keeps its other
 * bytes. 0; QMIBTREE_RC_ERROR when it cannot be opened or positioned (a pipe cannot)
 * or the text was not written whole. After a write that fell short the stream is left
 * open; not so when only its closing found that bytes were missing. */
QMIBTREE_API uint32_t qmibtree_buff_dump_to_file(qmibtree_buff_t* buff, const char* path,
                                                 int32_t offset);

/* The same at the file's end as it stands once opened with mode "w", which is the
 * start of a regular file: nothing is appended to what it held. */
QMIBTREE_API uint32_t qmibtree_buff_dump_to_file_end(qmibtree_buff_t* buff, const char* path);

/* Read `length` bytes at `offset` (0: up to the end of the file) into a new buffer,
 * NUL behind them; `size` is the count plus one, `left` the count, `pos` at the
 * start. A short read is not reported: zeros follow; a pipe gives nothing but zeros.
 * The caller frees the buffer with qfree. Null when the file cannot be opened or
 * memory is exhausted, and, with `length` 0, when `offset` is negative or lies past the
 * file's end, or the end cannot be told (of a pipe; of a folder on most file systems). */
QMIBTREE_API qmibtree_buff_t* qmibtree_buff_create_from_file(const char* path, int32_t offset,
                                                             uint32_t length);

#define QMIBTREE_XML_PATH_MAX 512 /* longest full name in a document, NUL included */

/* State of one document load, while it runs. Hosts have no use for it. */
struct qmibtree_xml_load_ctx_t {
  qmibtree_inst_t* inst;            /* the tree being loaded */
  char path[QMIBTREE_XML_PATH_MAX]; /* full name of the current element */
  uint32_t lengths[32];             /* [0] 0; [d + 1] length of `path` at nesting depth d */
  int32_t depth;                    /* open elements */
  uint32_t flags;                   /* the load's flags, passed on to every write */
  uint8_t ignore;                   /* 1: the element said ignorevalue="yes" */
};

/* Append the configuration document of the subtree at `name` (null: the whole
 * tree) to `buff`. `flags` is not used. The tree is not changed.
 * 0; QMIBTREE_RC_NOT_FOUND; QMIBTREE_RC_DUMP_EXCEEDED when the buffer is full; or
 * what reading a parameter failed with, QMIBTREE_RC_NO_HOOK for a dynamic one without
 * get_fn among it: the text is then incomplete and must not be stored. */
QMIBTREE_API uint32_t qmibtree_xml_dump_config(qmibtree_inst_t* inst, const char* name,
                                               qmibtree_buff_t* buff, uint32_t flags);

/* Write the document to a file at byte `offset` (qmibtree_buff_dump_to_file), and
 * its length in bytes to `*length`. Prints the length on standard output.
 * As qmibtree_xml_dump_config, or the file's result. When there is no memory for
 * the text the result is a success and nothing is written, `*length` set all the
 * same; when there is none to encode a base64 value the document holds "<null>" in its
 * place, and does not load. `*length` stays as it was when the first, counting pass fails. */
QMIBTREE_API uint32_t qmibtree_xml_dump_config_to_file(qmibtree_inst_t* inst, const char* name,
                                                       const char* path, int32_t offset,
                                                       uint32_t* length, uint32_t flags);

/* Load a document (NUL-terminated, at buff->start) into the tree: adds instances,
 * sets attributes, writes values with `flags`, as they come.
 * 0; QMIBTREE_RC_ERROR when it is not well-formed, nests deeper than 31 elements,
 * names a path of over 511 bytes, or is longer than INT32_MAX or the parser takes, or
 * there is no memory for the parser; what came before stays applied, also the instance
 * whose number made the path too long. What the tree refuses (unknown names, values out
 * of range) is skipped, unreported. */
QMIBTREE_API uint32_t qmibtree_xml_load(qmibtree_inst_t* inst, qmibtree_buff_t* buff,
                                        uint32_t flags);

/* The same from a file: `length` bytes at `offset` (0: to the end of the file).
 * Further result: QMIBTREE_RC_NO_FILE when it cannot be read into memory. */
QMIBTREE_API uint32_t qmibtree_xml_load_from_file(qmibtree_inst_t* inst, const char* path,
                                                  int32_t offset, uint32_t length, uint32_t flags);

#define QMIBTREE_NVRAM_MAGIC 0xabcd1234u /* first word of a partition image, big-endian */
#define QMIBTREE_NVRAM_MAX 65529u        /* a stored text is shorter than this */

/* Load the configuration at start: from the main partition, else the backup, else
 * the factory default file. After a load from a partition both partitions are
 * rewritten from the tree: without what there was no memory for, so that a start
 * short of memory can lose values for good. The route is traced in /tmp/tobixopen.
 * To be called once, on a tree just built. 0, whichever route it took. */
QMIBTREE_API int qmibtree_load_config(qmibtree_inst_t* inst);

/* Save the tree to the main and then the backup partition, each the text first
 * and its header after it. A document must stay below QMIBTREE_NVRAM_MAX bytes to
 * load again: this is not checked here (count with qmibtree_xml_dump_config).
 * 0; -1 when the backup device could not be opened for its header. */
QMIBTREE_API int qmibtree_save_config(qmibtree_inst_t* inst);

/* 1 when the main partition's header is valid and its text not empty, else 0. */
QMIBTREE_API int qmibtree_check_nvram(void);

/* Export the stored configuration (the main partition's text, or the factory default
 * file) through the external command zorem_cfg to `out_path`. The path goes through
 * the shell as it is: hand over no text from outside.
 * 0, whatever the command did; a device that ends before the stored length gives zeros
 * for the rest. -1 when the source cannot be read or is larger than QMIBTREE_NVRAM_MAX
 * bytes, `out_path` is null, or it does not fit the command line of 127 characters
 * (paths of up to 76 do; the temporary file is written then all the same). */
QMIBTREE_API int qmibtree_download_config(const char* out_path);

/* Write an upgrade file's payload to both partitions, backup first. The running
 * tree is not touched. 0 when the main partition's text was written whole and its
 * header could be opened (a header's write that falls short is not noticed); -1
 * when not, or `path` is null. A file that is not a whole upgrade file changes
 * nothing. */
QMIBTREE_API int qmibtree_upgrade_config(const char* path);

/* Erase both partitions. The running tree is not touched. The status of the second
 * erase command, as system() gives it. */
QMIBTREE_API int qmibtree_clear_config(void);

/* ------------------------------------------------------------------------
 * Components: the parts of the system that parameters take effect in
 *
 * One table for the process, not tied to a tree. Register all components at
 * start-up, call qmibtree_comps_mark_action after each batch of writes.
 * Only qmibtree_comp_mark accepts an id of 32 or more; everywhere else the id
 * must be below QMIBTREE_COMP_MAX. Every action and hook may be null.
 * ------------------------------------------------------------------------ */

#define QMIBTREE_COMP_MAX 32            /* ids 0..31 */
#define QMIBTREE_COMP_MARK_CHANGED 0x1u /* a parameter of the component changed */

/* An action of one component, or of the whole system. */
typedef void (*qmibtree_comp_action_fn)(void);

/* One component, as the table keeps it. */
struct qmibtree_comp_t {
  uint8_t used;  /* 1 once registered */
  uint32_t priv; /* the host's word */
  uint32_t mark; /* pending work: QMIBTREE_COMP_MARK_CHANGED, other bits the host's */
  qmibtree_comp_action_fn init;    /* run by qmibtree_comp_init */
  qmibtree_comp_action_fn start;   /* by qmibtree_comp_start */
  qmibtree_comp_action_fn stop;    /* by qmibtree_comp_stop */
  qmibtree_comp_action_fn restart; /* by qmibtree_comp_restart */
};

/* The process-wide hooks. */
struct qmibtree_comps_t {
  qmibtree_comp_action_fn init;        /* run by qmibtree_comps_init */
  qmibtree_comp_action_fn start;       /* by qmibtree_comps_start */
  qmibtree_comp_action_fn stop;        /* by qmibtree_comps_stop */
  qmibtree_comp_action_fn restart;     /* by qmibtree_comps_restart */
  qmibtree_comp_action_fn mark_action; /* acts on the marked components and unmarks them */
};

/* Copy the five process-wide hooks; a later call replaces all five. */
QMIBTREE_API void qmibtree_comps_register(const qmibtree_comps_t* hooks);

/* Fill slot `id`; again replaces everything and clears its marks. There is no way
 * back to an empty slot. */
QMIBTREE_API void qmibtree_comp_register(uint32_t id, uint32_t priv, qmibtree_comp_action_fn init,
                                         qmibtree_comp_action_fn start,
                                         qmibtree_comp_action_fn stop,
                                         qmibtree_comp_action_fn restart);

/* Add the bits of `mask` to the marks; nothing for an empty slot or an id of 32 or more. */
QMIBTREE_API void qmibtree_comp_mark(uint32_t id, uint32_t mask);

/* Clear the bits of `mask` from the marks. */
QMIBTREE_API void qmibtree_comp_unmark(uint32_t id, uint32_t mask);

/* Clear all marks of all components. */
QMIBTREE_API void qmibtree_comp_unmark_all(void);

/* 1 when any bit of `mask` is marked, else 0. */
QMIBTREE_API int qmibtree_comp_chk_mark(uint32_t id, uint32_t mask);

/* Run one action of a component; nothing for an empty slot. */
QMIBTREE_API void qmibtree_comp_init(uint32_t id);
QMIBTREE_API void qmibtree_comp_start(uint32_t id);
QMIBTREE_API void qmibtree_comp_stop(uint32_t id);
/* The same; marks stay. But without a restart action only QMIBTREE_COMP_MARK_CHANGED
 * is cleared: nothing is stopped or started instead. */
QMIBTREE_API void qmibtree_comp_restart(uint32_t id);

/* Run one process-wide hook. */
QMIBTREE_API void qmibtree_comps_init(void);
QMIBTREE_API void qmibtree_comps_start(void);
QMIBTREE_API void qmibtree_comps_stop(void);
QMIBTREE_API void qmibtree_comps_restart(void);
QMIBTREE_API void qmibtree_comps_mark_action(void);

/* ------------------------------------------------------------------------
 * Processes: what component actions do
 *
 * `id` is the component that acts; it is ignored.
 * ------------------------------------------------------------------------ */

/* Send SIGKILL to `pid`; nothing for a negative one. 0 is not filtered out: it kills
 * the caller's whole process group. */
QMIBTREE_API void qmibtree_comp_kill_pid(uint32_t id, int32_t pid);

/* The same for the decimal number that the file at `path` begins with, white space
 * before it skipped. Nothing when the file cannot be opened or has none, or the number
 * is negative or above INT32_MAX. */
QMIBTREE_API void qmibtree_comp_kill_pidfile(uint32_t id, const char* path);

/* Format a shell command, cut to 511 characters, and run it. What system() answers. */
QMIBTREE_API int qmibtree_comp_system(uint32_t id, const char* format, ...) QMIBTREE_PRINTF(2, 3);

/* Fork, and execute the program at `path` (PATH is not searched) with this process's
 * environment. The program's argument 0 is `path`; `arg` and what follows, up to a
 * null pointer, are its further arguments: end the list with (char*)NULL. A null `arg`
 * does not end the list: for no arguments pass (id, path, NULL, (char*)NULL).
 * What fork() answers: the child's id, which the caller reaps, or -1. A program that
 * cannot be executed ends with status 0. */
QMIBTREE_API int32_t qmibtree_comp_fork_and_execl(uint32_t id, const char* path, const char* arg,
                                                  ...) QMIBTREE_SENTINEL;

/* Run a shell command and keep the first line of its output, at most 254
 * characters, without its line feed, in `result`, which has `length` bytes and is
 * filled up with NULs; a line of `length` bytes or more is cut and has no NUL.
 * 0, also for a command that the shell cannot run; -1 when no shell can be started
 * (`result` untouched). The command's exit status is ignored. */
QMIBTREE_API int run_pipeResult(char* result, uint32_t length, const char* command);

/* ------------------------------------------------------------------------
 * Debug log of the program that loads the library
 *
 * Messages belong to a feature and have a severity. Each feature has a threshold;
 * the functions do not apply it, the QDBG_ macros do. The settings have no lock,
 * and messages of several threads can mix.
 * ------------------------------------------------------------------------ */

/* Features, with the default names that they are shown by. 5 to 9 are "TBD". */
#define QDBG_FEAT_MAIN 0    /* "MAIN" */
#define QDBG_FEAT_SYS 1     /* "SYS" */
#define QDBG_FEAT_DBUS 2    /* "DBUS" */
#define QDBG_FEAT_NETLINK 3 /* "NETLINK" */
#define QDBG_FEAT_MIB 4     /* "MIB" */
#define QDBG_FEAT_USER0 10  /* "USER0" */
#define QDBG_FEAT_USER1 11  /* "USER1" */
#define QDBG_FEAT_USER2 12  /* "USER2" */
#define QDBG_FEAT_USER3 13  /* "USER3" */
#define QDBG_FEAT_USER4 14  /* "USER4" */
#define QDBG_FEAT_USER5 15  /* "USER5" */
#define QDBG_FEAT_MAX 16    /* number of features; ends the list of qdbg_init */

/* Levels, equal to the syslog priorities, with the names that they are shown by. */
#define QDBG_LVL_EMERG 0  /* "EMERG" */
#define QDBG_LVL_ALERT 1  /* "ALERT" */
#define QDBG_LVL_CRIT 2   /* "CRIT" */
#define QDBG_LVL_ERR 3    /* "ERR" */
#define QDBG_LVL_WARN 4   /* "WARN" */
#define QDBG_LVL_NOTICE 5 /* "NOTICE" */
#define QDBG_LVL_INFO 6   /* "INFO" */
#define QDBG_LVL_DEBUG 7  /* "DEBUG" */
#define QDBG_LVL_MAX 8    /* number of levels */

/* What is set for one feature. */
struct qdbg_feat_info_t {
  const char* name; /* the host's, or null: the default name */
  uint32_t level;   /* threshold, 0 to 7 */
};

/* The settings, one record for the process; all zeros at load. */
struct qdbg_info_t {
  uint32_t syslog;                      /* 1: messages go to syslog */
  uint32_t reserved;                    /* 0 */
  uint32_t console;                     /* 1: messages go to standard output */
  qdbg_feat_info_t feat[QDBG_FEAT_MAX]; /* by feature */
};

/* The settings record, from load on. The host may change the record in place; the
 * pointer is the library's. */
extern QMIBTREE_API qdbg_info_t* qdbg_global_infop;

/* Reset the settings (console on, syslog off, every threshold QDBG_LVL_ERR, default
 * names), then apply triples of feature (int), name (const char*, may be null) and
 * level (int), up to a feature of exactly QDBG_FEAT_MAX:
 *
 *   qdbg_init(QDBG_FEAT_MIB, "tree", QDBG_LVL_DEBUG, QDBG_FEAT_MAX);
 *
 * The names are kept as pointers. Each triple is printed; one with an invalid
 * feature or level is otherwise skipped. */
QMIBTREE_API void qdbg_init(int feat, ...);

/* Set a feature's threshold; nothing for an invalid feature or level. */
QMIBTREE_API void qdbg_set_level(uint32_t feat, uint32_t level);

/* A feature's threshold; QDBG_LVL_MAX for an invalid feature. */
QMIBTREE_API uint32_t qdbg_get_level(uint32_t feat);

/* Log one message, whatever the threshold: on standard output as "\n[FEAT - LEVEL]: "
 * and the message, flushed, and to syslog, as the two switches say. A message of an
 * invalid feature or level is logged without its name; with standard output on that
 * is reported on standard error first. */
QMIBTREE_API void qdbg_logging_nochk(uint32_t feat, uint32_t level, const char* format, ...)
    QMIBTREE_PRINTF(3, 4);
QMIBTREE_API void qdbg_logging_nochk_valist(uint32_t feat, uint32_t level, const char* format,
                                            va_list args) QMIBTREE_PRINTF(3, 0);

/* Log a message when its level is not above its feature's threshold: format and
 * arguments as for printf. When it is not due none of them is evaluated. */
#define QDBG_LOG(feat, level, ...)                              \
  do {                                                          \
    const uint32_t qdbg_feat_ = (uint32_t)(feat);               \
    const uint32_t qdbg_level_ = (uint32_t)(level);             \
    if (qdbg_level_ <= qdbg_get_level(qdbg_feat_))              \
      qdbg_logging_nochk(qdbg_feat_, qdbg_level_, __VA_ARGS__); \
  } while (0)
#define QDBG_EMERG(feat, ...) QDBG_LOG(feat, QDBG_LVL_EMERG, __VA_ARGS__)
#define QDBG_ALERT(feat, ...) QDBG_LOG(feat, QDBG_LVL_ALERT, __VA_ARGS__)
#define QDBG_CRIT(feat, ...) QDBG_LOG(feat, QDBG_LVL_CRIT, __VA_ARGS__)
#define QDBG_ERR(feat, ...) QDBG_LOG(feat, QDBG_LVL_ERR, __VA_ARGS__)
#define QDBG_WARN(feat, ...) QDBG_LOG(feat, QDBG_LVL_WARN, __VA_ARGS__)
#define QDBG_NOTICE(feat, ...) QDBG_LOG(feat, QDBG_LVL_NOTICE, __VA_ARGS__)
#define QDBG_INFO(feat, ...) QDBG_LOG(feat, QDBG_LVL_INFO, __VA_ARGS__)
#define QDBG_DEBUG(feat, ...) QDBG_LOG(feat, QDBG_LVL_DEBUG, __VA_ARGS__)

/* ------------------------------------------------------------------------
 * Utilities
 * ------------------------------------------------------------------------ */

/* A status word shared among hosts, 0 at load; the library never touches it. */
extern QMIBTREE_API uint32_t qmibtree_global_status;

/* Allocate; `tag` names what for and is not looked at. Null for size 0 and when
 * memory is exhausted. Freed with qfree. */
QMIBTREE_API void* qmalloc(size_t size, const char* tag);

/* Free a block that qmalloc, qstrdup or the library handed out; null is accepted. */
QMIBTREE_API void qfree(void* block);

/* Copy a text into a new block, freed with qfree. Null for a null text and when
 * memory is exhausted. */
QMIBTREE_API char* qstrdup(const char* text, const char* tag);

/* --- texts and numbers --- */

/* The 6 bytes of a MAC address text of at least 17 characters: two hexadecimal digits
 * each at positions 0, 3, 6, 9, 12 and 15. The characters between are not looked
 * at; one that is no digit counts as 0. */
QMIBTREE_API void qstrmac2digit(const char* text, uint8_t* mac);

/* Print "\nbuffer (N bytes):" and the bytes in hexadecimal, 32 to a line in groups of
 * 4, on standard output, and flush it. */
QMIBTREE_API void qprintf_buffer(const void* bytes, uint32_t count);

/* The host of an http or https URL, up to the first "/" or ":" and at most `limit`
 * characters, into `host`, which has `limit` + 1 bytes and may be `url` itself; "" for a
 * text with neither scheme in it. The scheme is taken to be at the start. At most
 * half of what follows the scheme, rounded up, is copied: a host comes whole only where
 * what stands behind it, its "/" or ":" included, is at least as long, less one
 * character ("http://host/x" gives "hos", "http://host/xy" gives "host"). */
QMIBTREE_API void qstrurl2host(const char* url, char* host, uint32_t limit);

/* The number that the hexadecimal digits of a text make up, modulo 2^32; all other
 * characters are skipped. */
QMIBTREE_API int32_t qstring2hex(const char* text);

/* As atoi; numbers beyond 32 bits are taken modulo 2^32. */
QMIBTREE_API int32_t qstring2dec(const char* text);

/* qstring2hex behind "0x" or "0X", else qstring2dec. */
QMIBTREE_API int32_t qstring2digit(const char* text);

/* The next field of `base`, from byte `*position` (0 at first) to the next
 * `separator`, as a new text that the caller frees with qfree. `*position` moves one
 * character past the field whatever the separator's length. Null for an empty field
 * (the position moves on), at the end (it stays), and when memory is exhausted. */
QMIBTREE_API char* qutil_get_next_string(const char* base, uint32_t* position,
                                         const char* separator);

/* --- string hashes --- */

/* A hash of a text, below 2^31. Its bytes count as signed. */
QMIBTREE_API uint32_t SDBMHash(const char* text);
QMIBTREE_API uint32_t RSHash(const char* text);
QMIBTREE_API uint32_t JSHash(const char* text);
QMIBTREE_API uint32_t PJWHash(const char* text);
QMIBTREE_API uint32_t ELFHash(const char* text);
QMIBTREE_API uint32_t DJBHash(const char* text);
QMIBTREE_API uint32_t APHash(const char* text);

/* --- network interfaces, by name --- */

/* A counter of the interface, modulo 2^32; 0 when it cannot be read. */
QMIBTREE_API uint32_t ifs_get_stats_txpkts(const char* name);
QMIBTREE_API uint32_t ifs_get_stats_rxpkts(const char* name);
QMIBTREE_API uint32_t ifs_get_stats_txbytes(const char* name);
QMIBTREE_API uint32_t ifs_get_stats_rxbytes(const char* name);

/* "Up" or "Disabled" into `status`, which has 10 bytes; "Up" also without a carrier.
 * 0; negative when the kernel cannot be asked ("Disabled" then). */
QMIBTREE_API int32_t ifs_get_status(const char* name, char* status);

/* The hardware address as "00:1a:2b:3c:4d:5e" into `address`, which has 18 bytes.
 * 0; negative when the kernel cannot be asked (`address` untouched then). */
QMIBTREE_API int32_t ifs_get_hwaddr(const char* name, char* address);

/* --- threads --- */

/* Start a joinable thread with default attributes. It must return null or a block
 * from malloc or qmalloc, which qthread_join frees. 0 or an errno value. */
QMIBTREE_API int qthread_create(pthread_t* thread, void* (*start)(void*), void* arg);

/* Wait for a thread and free what it returned. 0, or an errno value with nothing
 * freed. Each thread is joined once. */
QMIBTREE_API int qthread_join(pthread_t thread);

#if defined(__clang__) && defined(__cplusplus)
#pragma clang diagnostic pop
#endif

#ifdef __cplusplus
}
#endif

#endif
