/* The public header is valid C99, and each record has both spellings. */
#include "qmibtree.h"

#define BOTH_SPELLINGS(record)     \
  extern record* record##_typedef; \
  extern struct record* record##_typedef

BOTH_SPELLINGS(qmibtree_inst_t);
BOTH_SPELLINGS(qmibtree_node);
BOTH_SPELLINGS(qmibtree_uidinfo_t);
BOTH_SPELLINGS(qmibtree_schema_t);
BOTH_SPELLINGS(qmibtree_value_t);
BOTH_SPELLINGS(qmibtree_datafn_t);
BOTH_SPELLINGS(qmibtree_buff_t);
BOTH_SPELLINGS(qmibtree_hash_t);
BOTH_SPELLINGS(qmibtree_notif_entry_t);
BOTH_SPELLINGS(qmibtree_notif_t);
BOTH_SPELLINGS(qmibtree_xml_load_ctx_t);
BOTH_SPELLINGS(qmibtree_comp_t);
BOTH_SPELLINGS(qmibtree_comps_t);
