/* How the programs of this directory end where something is not as they say. */
#ifndef CHECK_H
#define CHECK_H

#include <stdio.h>
#include <stdlib.h>

#include "qelj.h"
#include "qelj_status.h"

/* A call that has to succeed. */
#define CALL(call) checkStatus(call, #call, __LINE__)
/* A condition that has to hold. */
#define EXPECT(condition) ((condition) ? (void)0 : (printf("line %d: not so: %s\n", __LINE__, #condition), exit(1)))

static inline void checkStatus(QelStatus status, const char* call, int line) {
  if (status == qelStatusOk) return;
  printf("line %d: %s (%s)\n", line, qelStatusText(status), call);
  exit(1);
}

#endif
