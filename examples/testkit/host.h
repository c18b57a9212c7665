/* A small host: a lamp, whose color is kept on flash, and ports. */
#ifndef HOST_H
#define HOST_H

#include <qmibtree.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The records of the model, by unique id. */
enum { LAMP_ROOT, LAMP_COLOR, LAMP_UPTIME, LAMP_PORT, LAMP_PORT_ENABLE, LAMP_RECORDS };

qmibtree_schema_t* host_schema(void);

/* The tree with the stored configuration; null when there is no memory for it. */
qmibtree_inst_t* host_start(void);
void host_stop(qmibtree_inst_t* inst);

/* 0, or -1 when the lamp does not have the color. */
int host_set_color(qmibtree_inst_t* inst, const char* color);

/* Saves what has changed since the last time; 0, or -1 when that is still to be done. */
int host_save(qmibtree_inst_t* inst);

#ifdef __cplusplus
}
#endif

#endif
