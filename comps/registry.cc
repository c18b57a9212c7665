#include "qmibtree.h"

namespace {

constinit qmibtree_comp_t table[QMIBTREE_COMP_MAX] = {};
constinit qmibtree_comps_t process_hooks = {};

void run(qmibtree_comp_action_fn action) {
  if (action) action();
}

void run_of(uint32_t id, qmibtree_comp_action_fn qmibtree_comp_t::*action) {
  if (table[id].used) run(table[id].*action);
}

}  // namespace

void qmibtree_comps_register(const qmibtree_comps_t* hooks) { process_hooks = *hooks; }

void qmibtree_comp_register(uint32_t id, uint32_t priv, qmibtree_comp_action_fn init,
                            qmibtree_comp_action_fn start, qmibtree_comp_action_fn stop,
                            qmibtree_comp_action_fn restart) {
  table[id] = {1, priv, 0, init, start, stop, restart};
}

// Deliberate: the only function of the table that checks the id. Schema records carry ids of 32 and
// above to say that nobody owns them, and writes bring those here. Kept by registry_test.cc.
void qmibtree_comp_mark(uint32_t id, uint32_t mask) {
  if (id < QMIBTREE_COMP_MAX && table[id].used) table[id].mark |= mask;
}

void qmibtree_comp_unmark(uint32_t id, uint32_t mask) {
  if (table[id].used) table[id].mark &= ~mask;
}

void qmibtree_comp_unmark_all() {
  for (qmibtree_comp_t& comp : table)
    if (comp.used) comp.mark = 0;
}

int qmibtree_comp_chk_mark(uint32_t id, uint32_t mask) {
  return table[id].used && (table[id].mark & mask) != 0;
}

void qmibtree_comp_init(uint32_t id) { run_of(id, &qmibtree_comp_t::init); }
void qmibtree_comp_start(uint32_t id) { run_of(id, &qmibtree_comp_t::start); }
void qmibtree_comp_stop(uint32_t id) { run_of(id, &qmibtree_comp_t::stop); }

// Deliberate: without a restart action nothing is stopped and started, only the change mark goes,
// so that a component with nothing to restart is not pending for ever; with one, clearing the marks
// is the caller's. Kept by registry_test.cc.
void qmibtree_comp_restart(uint32_t id) {
  if (!table[id].used) return;
  if (table[id].restart)
    table[id].restart();
  else
    qmibtree_comp_unmark(id, QMIBTREE_COMP_MARK_CHANGED);
}

void qmibtree_comps_init() { run(process_hooks.init); }
void qmibtree_comps_start() { run(process_hooks.start); }
void qmibtree_comps_stop() { run(process_hooks.stop); }
void qmibtree_comps_restart() { run(process_hooks.restart); }
void qmibtree_comps_mark_action() { run(process_hooks.mark_action); }
