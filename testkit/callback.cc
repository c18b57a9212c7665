// The callback of a program that has none of its own. In a file of its own, so that it is linked
// only where it is missed.
#include "qmibtree.h"

extern "C" __attribute__((weak)) uint32_t mibtree_changed_callback2(qmibtree_inst_t* /*inst*/,
                                                                    qmibtree_node* /*node*/,
                                                                    qmibtree_value_t* /*value*/) {
  return QMIBTREE_RC_OK;
}
